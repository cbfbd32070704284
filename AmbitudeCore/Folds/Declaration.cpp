#include "AmbitudeCore/Folds/Declaration.h"

#include <limits>

#include "AmbitudeCore/Folds/EventScan.h"
#include "AmbitudeCore/Folds/EventTypes.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Records/TaskMinutes.h"

namespace halvo {
namespace {
std::optional<std::int64_t> endOf(std::int64_t startMs, const std::optional<int>& minutes) {
  if (!minutes) return std::nullopt;
  return startMs + static_cast<std::int64_t>(*minutes) * 60'000;
}
}  // namespace

std::optional<Declaration> Declaration::decode(const EventLogEvent& event) {
  if (event.type != EventType::taskDeclared) return std::nullopt;
  const auto* text = event.text("notes");
  if (!text) text = event.text("task");
  if (!text || Text::isBlank(*text)) return std::nullopt;
  Declaration declaration{.tsMs = event.tsMs, .notes = std::string(Text::trim(*text))};
  declaration.horizonMinutes = cleanTaskMinutes(event.detail.find("horizon_minutes"));
  if (const auto* until = event.text("until")) declaration.legacyUntil = *until;
  return declaration;
}

std::optional<std::int64_t> Declaration::endMs() const { return endOf(tsMs, horizonMinutes); }
std::optional<std::int64_t> Commitment::endMs() const { return endOf(declaredAtMs, horizonMinutes); }

namespace LatestDeclaration {

const EventLogEvent* event(std::span<const EventLogEvent> events, std::int64_t asOfMs) {
  return EventScan::newest(events, std::numeric_limits<std::int64_t>::min(), asOfMs, [](const EventLogEvent& candidate) {
    return candidate.type == EventType::taskDeclared || candidate.type == EventType::taskCleared;
  });
}

std::optional<Declaration> inForce(std::span<const EventLogEvent> events, std::int64_t asOfMs) {
  const auto* newest = event(events, asOfMs);
  return newest ? Declaration::decode(*newest) : std::nullopt;
}

std::optional<Commitment> commitment(std::span<const EventLogEvent> events, std::int64_t asOfMs) {
  const auto* newest = event(events, asOfMs);
  if (!newest || newest->type != EventType::taskDeclared) return std::nullopt;
  const auto* notes = newest->text("notes");
  if (!notes || Text::isBlank(*notes)) return std::nullopt;
  return Commitment{.notes = std::string(Text::trim(*notes)),
                    .declaredAtMs = newest->tsMs,
                    .horizonMinutes = cleanTaskMinutes(newest->detail.find("horizon_minutes"))};
}

}  // namespace LatestDeclaration
}  // namespace halvo
