#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "CaptureShared/Foundation/RawValue.h"

/// Sites whose very titles tell of a person's money or health.
namespace halvo::SensitiveSites {

enum class Category { financial, medical };

/// What is known of the page or window in front.
struct Moment {
  std::optional<std::string> browserURL = {};
  std::optional<std::string> browserTitle = {};
  std::optional<std::string> windowTitle = {};
};

/// By the address's host first, then by the titles.
std::optional<Category> category(const Moment& moment);
/// A listed domain or one below it, `www.` and case aside; or a host with a listed label.
std::optional<Category> categoryForHost(std::string_view host);
/// A listed phrase that stands as a whole, in any case.
std::optional<Category> categoryInTitle(std::string_view title);
/// A listed domain, or one below it, that stands in the title.
std::optional<Category> categoryOfDomainInTitle(std::string_view title);

/// The host of an address, lower-cased, without user, port and trailing dot; absent when there is none. An address without a scheme is
/// read as one with.
std::optional<std::string> host(std::string_view url);

const std::vector<std::string>& financialDomains();      ///< 32
const std::vector<std::string>& medicalDomains();        ///< 18
const std::vector<std::string>& medicalHostLabels();     ///< any part of a host between dots
const std::vector<std::string>& financialTitlePhrases(); ///< 16
const std::vector<std::string>& medicalTitlePhrases();   ///< 13

}  // namespace halvo::SensitiveSites

namespace halvo {
template <>
struct RawValues<SensitiveSites::Category> {
  static constexpr std::array table{std::pair{SensitiveSites::Category::financial, "financial"},
                                    std::pair{SensitiveSites::Category::medical, "medical"}};
};
}  // namespace halvo
