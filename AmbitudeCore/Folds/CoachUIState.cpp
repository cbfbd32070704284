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

}  // namespace halvo::CoachUIState
