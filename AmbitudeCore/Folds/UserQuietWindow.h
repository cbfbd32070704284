#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Foundation/RawValue.h"
#include "CaptureShared/Foundation/Translation.h"
#include "CaptureShared/Records/EventLogEvent.h"

namespace halvo {

/// How a person's quiet ends.
enum class UserQuietEndReason { elapsed, cancelled };

/// A person's own order to be left alone: it holds for exactly as long as they said, whatever turns up on screen.
struct UserQuietWindow {
  std::int64_t requestedMs = 0;  ///< also the window's identity
  std::int64_t untilMs = 0;
  std::optional<std::string> reason = {};
  std::optional<std::int64_t> cancelledAtMs = {};

  /// The window asked for last, at or before `asOfMs`, whether it still holds or not. A request without a usable end is no window, and a
  /// cancel counts only for the window it names.
  static std::optional<UserQuietWindow> latest(std::span<const EventLogEvent> events, std::int64_t asOfMs);

  /// The earlier of the cancel and the stated limit.
  std::int64_t effectiveEndMs() const { return std::min(cancelledAtMs.value_or(untilMs), untilMs); }
  /// Its last millisecond is the one before `effectiveEndMs`.
  bool isInForce(std::int64_t asOfMs) const { return asOfMs < effectiveEndMs(); }
  UserQuietEndReason endReason() const;

  bool operator==(const UserQuietWindow&) const = default;
};

/// The day of "rest of today" ends at 04:00 local time, so that a late evening's quiet survives midnight.
namespace UserQuietDayBoundary {
inline constexpr int hour = 4;
/// The first 04:00 that lies after a moment.
std::int64_t next(std::int64_t afterMs, const Calendar& calendar);
}  // namespace UserQuietDayBoundary

/// The lengths a person can choose from. The texts are the labels of the choice.
enum class UserQuietDuration { thirtyMinutes, oneHour, threeHours, restOfDay, indefinitely };
template <>
struct RawValues<UserQuietDuration> {
  static constexpr std::array table{std::pair{UserQuietDuration::thirtyMinutes, trMark("30 min")},
                                    std::pair{UserQuietDuration::oneHour, trMark("1 hour")},
                                    std::pair{UserQuietDuration::threeHours, trMark("3 hours")},
                                    std::pair{UserQuietDuration::restOfDay, trMark("Today")},
                                    std::pair{UserQuietDuration::indefinitely, trMark("Until I say")}};
};
/// When a choice made at `asOfMs` ends. `indefinitely` is one hundred years of 365 days: a window that never ends by itself.
std::int64_t endMs(UserQuietDuration duration, std::int64_t asOfMs, const Calendar& calendar);

/// The `user_quiet_requested` event.
namespace UserQuietRequestedEvent {
/// What the coach's tool was asked for and what was applied, so that a clamped request can be told from one as asked.
struct Applied {
  std::optional<double> requestedMinutes = {};  ///< absent for "rest of today"
  std::optional<double> appliedMinutes = {};
};
struct Request {
  std::int64_t untilMs = 0;
  std::optional<std::string> reason = {};
  std::int64_t asOfMs = 0;
  std::optional<Applied> byTool = {};  ///< only from the coach's tool
};
EventLogEvent make(const Request& request);
}  // namespace UserQuietRequestedEvent

/// The `user_quiet_cancelled` event.
namespace UserQuietCancelledEvent {
EventLogEvent make(std::int64_t windowRequestedMs, std::int64_t asOfMs);
}  // namespace UserQuietCancelledEvent

}  // namespace halvo
