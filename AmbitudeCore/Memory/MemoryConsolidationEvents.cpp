#include "AmbitudeCore/Memory/MemoryConsolidationEvents.h"

#include <limits>

#include "AmbitudeCore/Folds/EventScan.h"

namespace halvo::MemoryConsolidationEvents {

namespace {

EventLogEvent make(std::string_view type, std::int64_t asOfMs, JSONObject detail = {}) {
  return {.tsMs = asOfMs, .type = std::string(type), .detail = std::move(detail), .source = "coach-core"};
}

}  // namespace

EventLogEvent failed(const std::string& reason, std::int64_t periodsPending, std::int64_t asOfMs) {
  return make(failedType, asOfMs, {{"reason", reason}, {"periods_pending", periodsPending}});
}
EventLogEvent degenerate(const std::string& reason, std::int64_t asOfMs) { return make(degenerateType, asOfMs, {{"reason", reason}}); }
EventLogEvent deferredPowerStarted(std::int64_t asOfMs) { return make(deferredStartedType, asOfMs); }
EventLogEvent deferredPowerEnded(std::int64_t asOfMs) { return make(deferredEndedType, asOfMs); }

bool isDeferredForPower(std::span<const EventLogEvent> events) {
  using Limits = std::numeric_limits<std::int64_t>;
  const auto* newest = EventScan::newest(events, Limits::min(), Limits::max(), [](const EventLogEvent& event) {
    return event.type == deferredStartedType || event.type == deferredEndedType;
  });
  return newest && newest->type == deferredStartedType;
}

}  // namespace halvo::MemoryConsolidationEvents
