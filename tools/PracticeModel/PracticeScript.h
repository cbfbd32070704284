#pragma once

#include <cstdint>
#include <deque>
#include <filesystem>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>

#include "tools/PracticeModel/PracticeReplies.h"

namespace halvo {

/// Fixed replies, one JSON object a line, each used once and in order.
class PracticeScript {
 public:
  struct Line {
    PracticeReplies::Reply reply = {};
    std::optional<std::string> finishReason = {};
    std::int64_t delayMs = 0;
    std::optional<PracticeReplies::Prompt> only = {};  ///< only for this prompt; absent: for whichever comes
    bool operator==(const Line&) const = default;
  };

  PracticeScript() = default;
  /// Keys: "text", "thinking", "tool_calls" [{"name", "arguments"}], "finish_reason", "delayMs", "for". Blank lines count for nothing.
  /// Throws `std::runtime_error` naming the line that is no such object.
  explicit PracticeScript(std::string_view jsonLines);

  /// The first unused line for this prompt; absent when none is left. Safe from any thread.
  std::optional<Line> next(PracticeReplies::Prompt prompt);

 private:
  std::mutex mutex_;
  std::deque<Line> lines_;
};

}  // namespace halvo
