#pragma once

#include <cstdint>
#include <limits>
#include <span>
#include <string>

#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Records/EventLogEvent.h"

/// Whether the chat window is open, as the log tells it.
namespace halvo::CoachUIState {

/// True when the newest `ui_opened` or `ui_closed` of the closed range is `ui_opened`; with neither the chat counts as closed.
bool isOpen(std::span<const EventLogEvent> events, std::int64_t fromMs = std::numeric_limits<std::int64_t>::min(),
            std::int64_t toMs = std::numeric_limits<std::int64_t>::max());

/// A `ui_closed` that the person did themselves: "dismissed_by" is "user". A row without the key does not count.
bool isUserClose(const EventLogEvent& event);

/// One line for the `check_ui_state` tool: whether it is open at a moment, and what time that is.
std::string answer(std::span<const EventLogEvent> events, std::int64_t asOfMs, const Calendar& calendar);

}  // namespace halvo::CoachUIState

/// The marker of an `open_ui` call with nothing to show.
namespace halvo::EmptyOpenUIEvent {
EventLogEvent make(std::int64_t asOfMs);
}  // namespace halvo::EmptyOpenUIEvent

/// What was asked for when the application last stopped.
namespace halvo::UIOpenRequestedTrailingState {
/// True when the newest `ui_opened` or `ui_closed` is `ui_opened` and the person has said nothing since: the request is still unanswered,
/// and can be presented now.
bool shouldPresentOnColdReplay(std::span<const EventLogEvent> events);
}  // namespace halvo::UIOpenRequestedTrailingState
