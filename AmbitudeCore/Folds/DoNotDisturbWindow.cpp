#include "AmbitudeCore/Folds/DoNotDisturbWindow.h"

#include <algorithm>
#include <limits>

#include "AmbitudeCore/Folds/EventScan.h"
#include "AmbitudeCore/Folds/EventTypes.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo {
namespace {
std::optional<std::int64_t> integer(const EventLogEvent& event, std::string_view key) {
  const auto* detail = event.detail.objectValue();
  return detail ? detail->integer(key) : std::nullopt;
}
}  // namespace

std::optional<DoNotDisturbWindow> DoNotDisturbWindow::latest(std::span<const EventLogEvent> events, std::int64_t asOfMs) {
  const auto* begun = EventScan::newest(events, std::numeric_limits<std::int64_t>::min(), asOfMs, [](const EventLogEvent& event) {
    return event.type == EventType::doNotDisturb && integer(event, "until_ts_ms").has_value();
  });
  if (!begun) return std::nullopt;
  DoNotDisturbWindow window{.startMs = begun->tsMs, .untilMs = *integer(*begun, "until_ts_ms")};
  if (const auto* expectation = begun->text("expectation")) window.expectation = *expectation;
  for (const auto& event : events) {
    if (event.type != EventType::doNotDisturbEnded || event.tsMs > asOfMs) continue;
    if (integer(event, "window_start_ts_ms") != window.startMs) continue;
    const auto* text = event.text("reason");
    const auto reason = text ? fromRawValue<DoNotDisturbEndReason>(*text) : std::nullopt;
    if (!reason || *reason == DoNotDisturbEndReason::expired) continue;
    if (!window.endedEarly || event.tsMs < window.endedEarly->atMs) window.endedEarly = EndedEarly{event.tsMs, *reason};
  }
  return window;
}

bool DoNotDisturbWindow::isBlind() const { return !expectation || Text::isBlank(*expectation); }

EventLogEvent DoNotDisturbEvent::make(const Request& request) {
  JSONObject detail{{"until_ts_ms", request.asOfMs + request.minutes * 60'000}, {"minutes", request.minutes}};
  if (request.expectation) detail.set("expectation", *request.expectation);
  return {.tsMs = request.asOfMs, .type = std::string(EventType::doNotDisturb), .detail = std::move(detail)};
}

EventLogEvent DoNotDisturbEndedEvent::make(const End& end) {
  JSONObject detail{{"window_start_ts_ms", end.windowStartMs}, {"reason", rawValue(end.reason)}};
  if (end.detail) detail.set("detail", *end.detail);
  return {.tsMs = end.asOfMs, .type = std::string(EventType::doNotDisturbEnded), .detail = std::move(detail)};
}

bool DoNotDisturbEndedEvent::isThere(std::span<const EventLogEvent> events, const DoNotDisturbWindow& window) {
  return std::ranges::any_of(events, [&](const EventLogEvent& event) {
    return event.type == EventType::doNotDisturbEnded && integer(event, "window_start_ts_ms") == window.startMs;
  });
}

}  // namespace halvo
