#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace halvo {

/// What the service manager prints of a job, as far as we read it. A field that is missing or does not parse is absent: a job that has
/// never run has no exit code.
struct LaunchdPrint {
  std::optional<std::int32_t> pid = {};
  std::optional<std::int32_t> lastExitCode = {};
  std::optional<std::int64_t> runs = {};
  std::optional<std::string> program = {};
  std::optional<std::string> path = {};

  static LaunchdPrint parse(std::string_view text);
  /// The value of the first "key = value" line with this key; absent when it is empty.
  static std::optional<std::string> field(std::string_view text, std::string_view key);
  bool operator==(const LaunchdPrint&) const = default;
};

}  // namespace halvo
