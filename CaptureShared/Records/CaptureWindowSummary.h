#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace halvo {

/// Which apps were in front over the last minutes, counted from raw samples.
struct CaptureWindowSummary {
  struct AppShare {
    std::string app = {};
    double minutes = 0;
    bool operator==(const AppShare&) const = default;
  };
  std::int64_t asOfMs = 0;
  int windowMinutes = 0;
  std::vector<AppShare> appShares = {};  ///< most minutes first, six at most
  std::optional<std::string> frontmostNow = {};
  bool operator==(const CaptureWindowSummary&) const = default;
};

}  // namespace halvo
