#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace halvo {

/// One line of `gate-decisions.jsonl`: what the gate decided and what it knew.
struct GateDecisionRecord {
  std::int64_t v = 1;
  std::int64_t atMs = 0;
  std::string decision = {};  ///< "check_in", "no_check_in" or "failed"
  std::optional<std::string> summaryForCoach = {};
  std::optional<std::string> failureReason = {};
  std::optional<std::string> classifierState = {};
  std::optional<std::string> classifierReason = {};
  std::optional<std::string> declaredTask = {};
  std::optional<std::string> frontmostApp = {};
  std::optional<std::string> frontmostWindowTitle = {};
  std::optional<std::int64_t> stateDurationMs = {};
  std::optional<std::int64_t> classifierTickAtMs = {};
  std::optional<std::int64_t> classifierScreenshotAtMs = {};
  std::optional<std::string> commitmentNotes = {};
  std::optional<std::int64_t> commitmentDeclaredAtMs = {};
  std::optional<std::int64_t> commitmentHorizonMinutes = {};
  std::optional<std::int64_t> commitmentOverdueMs = {};

  /// A failed call has no verdict to judge.
  bool isLabelable() const { return decision != "failed"; }
  /// One line of JSON without a newline, keys in the order above.
  std::string encode() const;
  /// Absent unless the line is an object with `at_ms` and `decision`.
  static std::optional<GateDecisionRecord> decode(std::string_view line);
  bool operator==(const GateDecisionRecord&) const = default;
};

}  // namespace halvo
