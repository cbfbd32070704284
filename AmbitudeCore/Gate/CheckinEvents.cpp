#include "AmbitudeCore/Gate/CheckinEvents.h"

#include "AmbitudeCore/Folds/EventTypes.h"

namespace halvo {

EventLogEvent Layer3CheckinEvent::make(const std::string& summary, std::int64_t asOfMs) {
  return {.tsMs = asOfMs, .type = std::string(EventType::coachCheckin), .detail = JSONObject{{"summary_for_coach", summary}}};
}

std::optional<EventLogEvent> DeveloperCheckinTrigger::make(bool developerModeEnabled, std::int64_t asOfMs) {
  if (!developerModeEnabled) return std::nullopt;
  return EventLogEvent{.tsMs = asOfMs, .type = std::string(EventType::developerCheckinRequested)};
}

EventLogEvent DeveloperCheckinForcedEvent::make(std::int64_t requestedAtMs, std::int64_t asOfMs) {
  return {.tsMs = asOfMs, .type = std::string(EventType::developerCheckinForced), .detail = JSONObject{{"requested_at_ms", requestedAtMs}}};
}

EventLogEvent NoReplyTimeoutEvent::make(std::int64_t waitedMs, std::int64_t sinceTsMs, std::int64_t asOfMs) {
  return {.tsMs = asOfMs,
          .type = std::string(EventType::noReplyTimeout),
          .detail = JSONObject{{"waited_ms", waitedMs}, {"since_ts_ms", sinceTsMs}}};
}

}  // namespace halvo
