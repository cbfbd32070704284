#include "AmbitudeCore/Folds/CoachCorrectionsLog.h"

#include <algorithm>

#include "AmbitudeCore/Folds/EventTypes.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo {

EventLogEvent CoachCorrectionRecordedEvent::make(const Correction& correction, const Calendar& calendar) {
  JSONObject detail{{"text", correction.text}, {"lasts", rawValue(correction.lasts)}};
  if (correction.scope) detail.set("scope", rawValue(*correction.scope));
  if (const auto end = CoachCorrection::expiry(correction.lasts, correction.asOfMs, calendar)) detail.set("expires_at_ms", *end);
  return {.tsMs = correction.asOfMs, .type = std::string(EventType::correctionRecorded), .detail = std::move(detail)};
}

namespace CoachCorrectionsLog {

std::vector<CoachCorrection> fromEvents(std::span<const EventLogEvent> events) {
  std::vector<CoachCorrection> corrections;
  for (const auto& event : events) {
    if (event.type != EventType::correctionRecorded) continue;
    const auto* detail = event.detail.objectValue();
    const auto* text = event.text("text");
    if (!detail || !text || Text::isBlank(*text)) continue;
    CoachCorrection correction{.atMs = event.tsMs, .text = std::string(Text::trim(*text))};
    if (const auto* scope = event.text("scope")) correction.scope = fromRawValue<CoachCorrection::Scope>(*scope);
    if (const auto* lasts = event.text("lasts")) correction.lasts = fromRawValue<CoachCorrection::Lasts>(*lasts);
    correction.expiresAtMs = detail->integer("expires_at_ms");
    const bool limited = correction.lasts && *correction.lasts != CoachCorrection::Lasts::untilChanged;
    if (limited && !correction.expiresAtMs)
      correction.expiresAtMs = event.tsMs + static_cast<std::int64_t>(CoachCorrection::nextFewHoursDuration * 1000);
    corrections.push_back(std::move(correction));
  }
  std::ranges::stable_sort(corrections, {}, &CoachCorrection::atMs);
  return corrections;
}

std::vector<CoachCorrection> inForce(std::vector<CoachCorrection> corrections, std::int64_t asOfMs) {
  std::erase_if(corrections, [&](const CoachCorrection& c) { return c.atMs > asOfMs || !c.isInForce(asOfMs); });
  return corrections;
}

}  // namespace CoachCorrectionsLog
}  // namespace halvo
