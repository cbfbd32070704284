#pragma once

#include <functional>
#include <vector>

#include "CaptureShared/Records/EventLogEvent.h"

namespace halvo::EventSearch {

/// The rows of the event log that `keeps` wants; none without a log. Throws `std::system_error` for a log that can't be read.
std::vector<EventLogEvent> eventsThat(const std::function<bool(EventLogEvent&)>& keeps);

}  // namespace halvo::EventSearch
