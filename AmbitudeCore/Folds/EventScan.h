#pragma once

#include <cstdint>
#include <span>

#include "CaptureShared/Records/EventLogEvent.h"

/// One walk over events in any order, without a copy.
namespace halvo::EventScan {

/// The newest event of the closed range `[fromMs, toMs]` that meets the condition; of equal times the later row. Null when there is none.
template <class Condition>
const EventLogEvent* newest(std::span<const EventLogEvent> events, std::int64_t fromMs, std::int64_t toMs, Condition&& meets) {
  // From the end: logs are nearly always in order, so the first hit spares the condition for the rest.
  const EventLogEvent* found = nullptr;
  for (auto index = events.size(); index-- > 0;) {
    const auto& event = events[index];
    if (event.tsMs >= fromMs && event.tsMs <= toMs && (!found || event.tsMs > found->tsMs) && meets(event)) found = &event;
  }
  return found;
}

}  // namespace halvo::EventScan
