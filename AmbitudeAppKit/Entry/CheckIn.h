#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace halvo {

/// One judgment as the application shows it.
struct CheckIn {
  std::string id = {};  ///< stable for a row: its time text and its place in what was read
  std::optional<std::int64_t> atMs = {};
  std::string atRaw = {};  ///< the row's `at` as it stands
  std::string state = {};  ///< "-" for a row without one
  std::optional<std::string> coachMove = {}, coachMessage = {};
  std::optional<std::string> frontmostApp = {}, reason = {}, declaredTask = {};
  std::optional<std::int64_t> screenshotAtMs = {};
  std::optional<std::string> reasonCheck = {};

  /// Absent unless the line is a JSON object with a text `at`.
  static std::optional<CheckIn> decode(std::string_view line, std::size_t place);
};

}  // namespace halvo
