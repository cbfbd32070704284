#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "AmbitudeCore/Backends/Routing/OpenRouterProviderRouting.h"

namespace halvo {

/// provider-pricing.json: the catalogue as it was last fetched.
struct CachedProviderPricing {
  static constexpr std::size_t largestFile = 4 << 20;  ///< bytes; a catalogue takes a few thousand

  std::int64_t fetchedAtMs = 0;
  std::string model = {};
  std::vector<OpenRouterProviderRouting::ProviderPricing> entries = {};

  /// "provider-pricing.json" directly under the data root.
  static std::filesystem::path defaultURL(const std::filesystem::path& dataRoot);

  /// Throws `JSONEncodingError` when a number is not finite.
  std::string encode() const;
  /// Absent unless time, model and at least one usable entry can be read. Unusable entries are left out.
  static std::optional<CachedProviderPricing> decode(std::string_view text);

  /// Absent for a file that is missing, no regular file, too large or not one of these. Never throws for what it finds.
  static std::optional<CachedProviderPricing> read(const std::filesystem::path& file);
  /// Replaces the file in one step, 0600. Throws `std::system_error`, and the old file stays.
  void write(const std::filesystem::path& file) const;

  bool operator==(const CachedProviderPricing&) const = default;
};

}  // namespace halvo
