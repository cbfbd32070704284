#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "AmbitudeCore/Folds/DoNotDisturbWindow.h"
#include "AmbitudeCore/Folds/UserQuietWindow.h"
#include "CaptureShared/Foundation/Calendar.h"

/// The windows that keep the coach away, folded out of the log, and what the coach is told when its own one is over.
namespace halvo::CoachProjection {

inline std::optional<UserQuietWindow> latestUserQuietWindow(std::span<const EventLogEvent> events, std::int64_t asOfMs) {
  return UserQuietWindow::latest(events, asOfMs);
}
inline std::optional<DoNotDisturbWindow> latestDoNotDisturbWindow(std::span<const EventLogEvent> events, std::int64_t asOfMs) {
  return DoNotDisturbWindow::latest(events, asOfMs);
}

/// Stands before the first block at or behind `endedMs`.
struct Notice {
  std::int64_t endedMs = 0;
  std::string text = {};
  bool operator==(const Notice&) const = default;
};
/// One for each of the coach's windows that has ended by `asOfMs`, oldest first. A window that a newer one took over has none.
std::vector<Notice> quietNotices(std::span<const EventLogEvent> events, std::int64_t asOfMs, const Calendar& calendar);

}  // namespace halvo::CoachProjection
