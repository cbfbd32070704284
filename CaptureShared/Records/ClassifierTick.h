#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace halvo {

/// One row of `checker-log.jsonl`: what the classifier made of one moment.
struct ClassifierTick {
  std::string at = {};                                ///< ISO time of the row, with the local offset
  std::optional<std::string> state = {};              ///< "ON_TASK", "NOT_ALIGNED", "IDLE", "NO_TASK" or "ABSTAINED"
  std::optional<std::string> frontmostApp = {};
  std::optional<std::string> frontmostWindowTitle = {};  ///< fit to leave the machine
  std::optional<std::string> browserTitle = {};          ///< likewise
  std::optional<std::string> reason = {};                ///< the model's sentence, or what replaced it
  std::optional<double> confidence = {};                 ///< 0 to 1
  std::optional<std::string> declaredTask = {};
  std::optional<std::string> model = {};                 ///< absent for verdicts that needed no model
  std::optional<std::int64_t> screenshotAtMs = {};       ///< when the frame was taken
  std::optional<std::string> reasonCheck = {};
  std::optional<std::string> contentWithheldForDenylist = {};  ///< "frontmost_denylisted" or "denylisted_window_visible"

  /// `at` as milliseconds since the epoch, through the shared memo; absent when it does not parse.
  std::optional<std::int64_t> atMs() const;

  /// One line of JSON without a newline. Throws `JSONEncodingError`.
  std::string encode() const;
  /// Absent unless the line is a JSON object with a text `at`; a field of the wrong type is absent.
  static std::optional<ClassifierTick> decode(std::string_view line);

  bool operator==(const ClassifierTick&) const = default;
};

}  // namespace halvo
