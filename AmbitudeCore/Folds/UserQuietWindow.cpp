#include "AmbitudeCore/Folds/UserQuietWindow.h"

#include <limits>

#include "AmbitudeCore/Folds/EventScan.h"
#include "AmbitudeCore/Folds/EventTypes.h"

namespace halvo {
namespace {
std::optional<std::int64_t> untilOf(const EventLogEvent& event) {
  const auto* detail = event.detail.objectValue();
  if (!detail) return std::nullopt;
  const auto until = detail->integer("quiet_until_ts_ms");
  return until ? until : detail->integer("user_quiet_until_ts_ms");
}
}  // namespace

std::optional<UserQuietWindow> UserQuietWindow::latest(std::span<const EventLogEvent> events, std::int64_t asOfMs) {
  const auto* request = EventScan::newest(events, std::numeric_limits<std::int64_t>::min(), asOfMs, [](const EventLogEvent& event) {
    return event.type == EventType::userQuietRequested && untilOf(event).has_value();
  });
  if (!request) return std::nullopt;
  UserQuietWindow window{.requestedMs = request->tsMs, .untilMs = *untilOf(*request)};
  if (const auto* reason = request->text("reason")) window.reason = *reason;
  for (const auto& event : events) {
    if (event.type != EventType::userQuietCancelled || event.tsMs > asOfMs || !event.detail.objectValue()) continue;
    if (event.detail.objectValue()->integer("window_requested_ts_ms") != window.requestedMs) continue;
    window.cancelledAtMs = std::min(window.cancelledAtMs.value_or(event.tsMs), event.tsMs);
  }
  return window;
}

UserQuietEndReason UserQuietWindow::endReason() const {
  return cancelledAtMs && *cancelledAtMs < untilMs ? UserQuietEndReason::cancelled : UserQuietEndReason::elapsed;
}

std::int64_t UserQuietDayBoundary::next(std::int64_t afterMs, const Calendar& calendar) { return calendar.nextHour(afterMs, hour); }

std::int64_t endMs(UserQuietDuration duration, std::int64_t asOfMs, const Calendar& calendar) {
  switch (duration) {
    case UserQuietDuration::thirtyMinutes: return asOfMs + 1'800'000;
    case UserQuietDuration::oneHour: return asOfMs + 3'600'000;
    case UserQuietDuration::threeHours: return asOfMs + 10'800'000;
    case UserQuietDuration::restOfDay: return UserQuietDayBoundary::next(asOfMs, calendar);
    case UserQuietDuration::indefinitely: return asOfMs + 3'153'600'000'000;
  }
  return asOfMs;
}

EventLogEvent UserQuietRequestedEvent::make(const Request& request) {
  JSONObject detail{{"quiet_until_ts_ms", request.untilMs}};
  if (request.reason) detail.set("reason", *request.reason);
  if (request.byTool) {
    if (request.byTool->requestedMinutes) detail.set("user_quiet_requested_minutes", *request.byTool->requestedMinutes);
    if (request.byTool->appliedMinutes) detail.set("user_quiet_applied_minutes", *request.byTool->appliedMinutes);
    detail.set("user_quiet_until_ts_ms", request.untilMs);
  }
  return {.tsMs = request.asOfMs, .type = std::string(EventType::userQuietRequested), .detail = std::move(detail)};
}

EventLogEvent UserQuietCancelledEvent::make(std::int64_t windowRequestedMs, std::int64_t asOfMs) {
  return {.tsMs = asOfMs,
          .type = std::string(EventType::userQuietCancelled),
          .detail = JSONObject{{"window_requested_ts_ms", windowRequestedMs}}};
}

}  // namespace halvo
