#include "AmbitudeCore/Backends/Remote/OpenRouterSessionID.h"

#include <algorithm>

#include <fmt/format.h>

#include "CaptureShared/Foundation/Digest.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo::OpenRouterSessionID {

std::string digest(std::string_view text) { return Digest::sha256Hex(text); }

std::string derive(const std::vector<EventLogEvent>& events, const std::vector<std::string>& consolidatedNotes,
                   std::optional<std::int64_t> collapsedFarEdgeMs, std::int64_t asOfMs) {
  std::optional<std::int64_t> first;
  for (const auto& event : events)
    if (event.tsMs <= asOfMs) first = std::min(first.value_or(event.tsMs), event.tsMs);
  const auto orDash = [](const std::optional<std::int64_t>& ms) { return ms ? fmt::to_string(*ms) : "-"; };
  return digest(fmt::format("{}\n{}\n{}", orDash(first), Text::join(consolidatedNotes, "\n"), orDash(collapsedFarEdgeMs)));
}

}  // namespace halvo::OpenRouterSessionID
