#include "AmbitudeCore/Folds/CoachUIState.h"

#include "AmbitudeCore/Folds/EventScan.h"
#include "AmbitudeCore/Folds/EventTypes.h"

namespace halvo::CoachUIState {

bool isOpen(std::span<const EventLogEvent> events, std::int64_t fromMs, std::int64_t toMs) {
  const auto* newest = EventScan::newest(events, fromMs, toMs, [](const EventLogEvent& event) {
    return event.type == EventType::uiOpened || event.type == EventType::uiClosed;
  });
  return newest && newest->type == EventType::uiOpened;
}

bool isUserClose(const EventLogEvent& event) {
  if (event.type != EventType::uiClosed) return false;
  const auto* by = event.text("dismissed_by");
  return by && *by == "user";
}

std::string answer(std::span<const EventLogEvent> events, std::int64_t asOfMs, const Calendar& calendar) {
  const bool open = isOpen(events, std::numeric_limits<std::int64_t>::min(), asOfMs);
  return std::string("The UI is currently ") + (open ? "open" : "closed") + ". The current time is " + calendar.hourMinute(asOfMs);
}

}  // namespace halvo::CoachUIState

namespace halvo {

EventLogEvent EmptyOpenUIEvent::make(std::int64_t asOfMs) { return {.tsMs = asOfMs, .type = std::string(EventType::emptyOpenUI)}; }

bool UIOpenRequestedTrailingState::shouldPresentOnColdReplay(std::span<const EventLogEvent> events) {
  constexpr auto never = std::numeric_limits<std::int64_t>::min();
  constexpr auto ever = std::numeric_limits<std::int64_t>::max();
  // One walk for both, so that of equal times the later row decides.
  const auto* newest = EventScan::newest(events, never, ever, [](const EventLogEvent& event) {
    const auto* role = event.type == EventType::chatMessage ? event.text("role") : nullptr;
    return event.type == EventType::uiOpened || event.type == EventType::uiClosed || (role && *role == "user");
  });
  return newest && newest->type == EventType::uiOpened;
}

}  // namespace halvo
