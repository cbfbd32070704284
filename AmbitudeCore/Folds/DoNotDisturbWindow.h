#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "CaptureShared/Foundation/RawValue.h"
#include "CaptureShared/Records/EventLogEvent.h"

namespace halvo {

/// What ended the coach's own holding of its messages, as the log writes it.
enum class DoNotDisturbEndReason { patternBroke, breakTaken, expired };
template <>
struct RawValues<DoNotDisturbEndReason> {
  static constexpr std::array table{std::pair{DoNotDisturbEndReason::patternBroke, "pattern_broke"},
                                    std::pair{DoNotDisturbEndReason::breakTaken, "break_taken"},
                                    std::pair{DoNotDisturbEndReason::expired, "expired"}};
};

/// The coach's own choice to hold its messages: a prediction, not an order, so it ends early when what the person does stops matching it.
struct DoNotDisturbWindow {
  struct EndedEarly {
    std::int64_t atMs = 0;
    DoNotDisturbEndReason reason = DoNotDisturbEndReason::patternBroke;
    bool operator==(const EndedEarly&) const = default;
  };

  std::int64_t startMs = 0;
  std::int64_t untilMs = 0;
  std::optional<std::string> expectation = {};  ///< what the coach expects to keep seeing
  std::optional<EndedEarly> endedEarly = {};

  /// The newest window that began at or before `asOfMs`, ended or not. An end of the kind "expired" is the timer's and not early.
  static std::optional<DoNotDisturbWindow> latest(std::span<const EventLogEvent> events, std::int64_t asOfMs);

  std::int64_t effectiveEndMs() const { return endedEarly ? endedEarly->atMs : untilMs; }
  bool isActive(std::int64_t asOfMs) const { return asOfMs < effectiveEndMs(); }
  /// Nothing to compare against: only its timer and a break can end it.
  bool isBlind() const;

  bool operator==(const DoNotDisturbWindow&) const = default;
};

/// The `do_not_disturb` event: the coach holds its messages from `asOfMs` on.
namespace DoNotDisturbEvent {
struct Request {
  std::int64_t minutes = 0;
  std::optional<std::string> expectation = {};
  std::int64_t asOfMs = 0;
};
EventLogEvent make(const Request& request);
}  // namespace DoNotDisturbEvent

/// The `do_not_disturb_ended` event.
namespace DoNotDisturbEndedEvent {
struct End {
  std::int64_t windowStartMs = 0;
  DoNotDisturbEndReason reason = DoNotDisturbEndReason::expired;
  std::optional<std::string> detail = {};
  std::int64_t asOfMs = 0;
};
EventLogEvent make(const End& end);
/// Whether one stands in the log for the window, of whatever reason.
bool isThere(std::span<const EventLogEvent> events, const DoNotDisturbWindow& window);
}  // namespace DoNotDisturbEndedEvent

}  // namespace halvo
