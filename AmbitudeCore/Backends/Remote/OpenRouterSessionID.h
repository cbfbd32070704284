#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "CaptureShared/Records/EventLogEvent.h"

/// The identity a conversation keeps as long as its beginning stays the same, so that its calls stay on one warm prompt cache.
namespace halvo::OpenRouterSessionID {

/// The text's SHA-256 as 64 lower-case hexadecimal digits.
std::string digest(std::string_view text);

/// From what a conversation's prefix is made of: the time of its first event up to `asOfMs` ("-" without one), the notes it opens with,
/// and how far back its collapsed part reaches (milliseconds since the epoch; "-" when nothing is collapsed). Later events change nothing.
std::string derive(const std::vector<EventLogEvent>& events, const std::vector<std::string>& consolidatedNotes,
                   std::optional<std::int64_t> collapsedFarEdgeMs, std::int64_t asOfMs);

}  // namespace halvo::OpenRouterSessionID
