#include "CaptureShared/Records/CoachCorrection.h"

#include "CaptureShared/Foundation/JSONValue.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo {

std::optional<std::int64_t> CoachCorrection::expiry(Lasts lasts, std::int64_t saidAtMs, const Calendar& calendar) {
  switch (lasts) {
    case Lasts::untilChanged: return std::nullopt;
    case Lasts::restOfToday: return calendar.nextHour(saidAtMs, dayBoundaryHour);
    case Lasts::nextFewHours: return saidAtMs + static_cast<std::int64_t>(nextFewHoursDuration * 1000);
  }
  return std::nullopt;
}

std::optional<CoachCorrection> CoachCorrection::decode(std::string_view line) {
  const auto value = JSONValue::parse(line);
  const auto* object = value ? value->objectValue() : nullptr;
  const auto at = object ? object->integer("at_ms") : std::nullopt;
  auto text = object ? object->string("text") : std::nullopt;
  if (!at || !text || Text::isBlank(*text)) return std::nullopt;
  return CoachCorrection{.atMs = *at,
                         .text = std::move(*text),
                         .foldedAtMs = object->integer("folded_at_ms"),
                         .scope = fromRawValue<Scope>(object->string("scope").value_or("")),
                         .expiresAtMs = object->integer("expires_at_ms"),
                         .lasts = fromRawValue<Lasts>(object->string("lasts").value_or(""))};
}

std::string CoachCorrection::encode() const {
  JSONObject row{{"at_ms", atMs}, {"text", text}};
  if (foldedAtMs) row.set("folded_at_ms", *foldedAtMs);
  if (scope) row.set("scope", rawValue(*scope));
  if (expiresAtMs) row.set("expires_at_ms", *expiresAtMs);
  if (lasts) row.set("lasts", rawValue(*lasts));
  return JSONValue(std::move(row)).dump();
}

}  // namespace halvo
