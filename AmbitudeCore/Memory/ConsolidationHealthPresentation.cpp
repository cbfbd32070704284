#include "AmbitudeCore/Memory/ConsolidationHealthPresentation.h"

#include <limits>

#include "AmbitudeCore/Folds/EventScan.h"
#include "AmbitudeCore/Memory/MemoryConsolidationEvents.h"
#include "CaptureShared/Foundation/Translation.h"

namespace halvo::ConsolidationHealthPresentation {

std::optional<Trouble> trouble(std::span<const EventLogEvent> events, std::optional<std::int64_t> regeneratedAtMs) {
  using namespace MemoryConsolidationEvents;
  constexpr auto latest = std::numeric_limits<std::int64_t>::max();
  const auto* found = EventScan::newest(events, regeneratedAtMs.value_or(0), latest, [](const EventLogEvent& event) {
    return event.type == failedType || event.type == degenerateType;
  });
  const auto* detail = found ? found->detail.objectValue() : nullptr;
  if (!detail) return std::nullopt;
  return Trouble{.reason = detail->string("reason").value_or(""),
                 .periodsPending = detail->integer("periods_pending").value_or(0),
                 .isDegenerate = found->type == degenerateType};
}

std::optional<std::string> bubbleText(const Trouble& trouble, bool developerMode) {
  if (developerMode)
    return tr("Nightly memory {}: {} ({} period(s) pending)", trouble.isDegenerate ? tr("degenerate") : tr("failed"), trouble.reason,
              trouble.periodsPending);
  if (trouble.periodsPending < periodsPendingBeforeOrdinaryUserNotice) return std::nullopt;
  return tr("Lark hasn't been able to take in the last few days yet. Nothing is lost; it will be tried again every night.");
}

}  // namespace halvo::ConsolidationHealthPresentation
