#pragma once

#include <array>
#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "CaptureShared/Foundation/RawValue.h"
#include "CaptureShared/Foundation/Regex.h"
#include "CaptureShared/Privacy/SensitiveSites.h"

/// The rule for window and page titles that may leave the machine.
namespace halvo::OutboundTitlePrivacy {

enum class Outcome { unchanged, withheldIdentifier, genericizedFinancial, genericizedMedical };

/// One shape of identifier in a title.
struct Pattern {
  Regex regex;
  std::size_t group = 0;                                ///< the capture that is the value; 0 is the whole match
  bool (*validate)(std::string_view value) = nullptr;  ///< whether the value counts
};

/// In the order in which they are applied; compiled once a process.
const std::vector<Pattern>& patterns();

inline constexpr std::string_view withheldToken = "[title withheld: contained an identifier]";
inline constexpr std::string_view redactedValueToken = "[identifier withheld]";
/// "[banking or other financial site]" or "[medical or health site]".
std::string_view genericToken(SensitiveSites::Category category);

/// What may be shown of a title. An identifier outweighs a site; a title that a pattern gives up on counts as one with an identifier.
Outcome outcome(std::string_view title);

/// The title, or the token that stands in its place.
std::string sanitize(std::string_view title);
/// Absent stays absent.
std::optional<std::string> sanitize(const std::optional<std::string>& title);

/// The title with each identifier alone replaced by `redactedValueToken`; `withheldToken` when a pattern gives up.
std::string redactIdentifierValues(std::string_view title);

/// How often each of this rule's tokens stands in a text; tokens that don't are left out.
std::map<std::string, int> placeholderCounts(std::string_view text);
/// What happened to a list of titles, for a log line: "withheld_identifier 2, genericized_medical 1". Unchanged titles are not told.
std::string summary(const std::vector<Outcome>& outcomes);

}  // namespace halvo::OutboundTitlePrivacy

namespace halvo {
template <>
struct RawValues<OutboundTitlePrivacy::Outcome> {
  static constexpr std::array table{std::pair{OutboundTitlePrivacy::Outcome::unchanged, "unchanged"},
                                    std::pair{OutboundTitlePrivacy::Outcome::withheldIdentifier, "withheld_identifier"},
                                    std::pair{OutboundTitlePrivacy::Outcome::genericizedFinancial, "genericized_financial"},
                                    std::pair{OutboundTitlePrivacy::Outcome::genericizedMedical, "genericized_medical"}};
};
}  // namespace halvo
