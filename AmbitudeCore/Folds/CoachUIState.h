#pragma once

#include <cstdint>
#include <limits>
#include <span>

#include "CaptureShared/Records/EventLogEvent.h"

/// Whether the chat window is open, as the log tells it.
namespace halvo::CoachUIState {

/// True when the newest `ui_opened` or `ui_closed` of the closed range is `ui_opened`; with neither the chat counts as closed.
bool isOpen(std::span<const EventLogEvent> events, std::int64_t fromMs = std::numeric_limits<std::int64_t>::min(),
            std::int64_t toMs = std::numeric_limits<std::int64_t>::max());

/// A `ui_closed` that the person did themselves: "dismissed_by" is "user". A row without the key does not count.
bool isUserClose(const EventLogEvent& event);

}  // namespace halvo::CoachUIState
