#include "AmbitudeCore/Folds/CoachProjection.h"

#include <algorithm>

#include "AmbitudeCore/Folds/EventTypes.h"
#include "CaptureShared/Privacy/ScreenText.h"

namespace halvo::CoachProjection {
namespace {

constexpr const char* piledUp =
    " Everything below piled up while you were quiet — it is one situation you are seeing for the first time, not a list of things you "
    "failed to answer.";
constexpr const char* onlyTheTimer = " You gave no expectation when you asked, so nothing could end this early — only the timer could.";

std::string ending(const DoNotDisturbWindow& window) {
  if (!window.endedEarly) return "; the window ran out.";
  if (window.endedEarly->reason == DoNotDisturbEndReason::breakTaken) return "; they took a break, so the window ended early.";
  const auto expected = ScreenText::sanitize(window.expectation.value_or(""), ScreenText::reasonCap);
  return ", expecting \"" + expected + "\", and what they're doing stopped matching that, so the window ended early.";
}

std::string notice(const DoNotDisturbWindow& window, const Calendar& calendar) {
  const bool ranOutBlind = !window.endedEarly && window.isBlind();
  return "notice: you asked to hold messages at " + calendar.hourMinute(window.startMs) + ending(window) + piledUp +
         (ranOutBlind ? onlyTheTimer : "");
}

}  // namespace

std::vector<Notice> quietNotices(std::span<const EventLogEvent> events, std::int64_t asOfMs, const Calendar& calendar) {
  std::vector<std::int64_t> starts;
  for (const auto& event : events)
    if (event.type == EventType::doNotDisturb && event.tsMs <= asOfMs) starts.push_back(event.tsMs);
  std::ranges::sort(starts);
  std::vector<Notice> notices;
  for (std::size_t i = 0; i < starts.size(); ++i) {
    // Until the next one begins, this one is the latest.
    const auto nextMs = i + 1 < starts.size() ? starts[i + 1] : asOfMs + 1;
    const auto window = DoNotDisturbWindow::latest(events, nextMs - 1);
    if (!window || window->startMs != starts[i] || window->isActive(nextMs - 1)) continue;
    notices.push_back({window->effectiveEndMs(), notice(*window, calendar)});
  }
  return notices;
}

}  // namespace halvo::CoachProjection
