#pragma once

#include <filesystem>
#include <functional>
#include <vector>

#include "CaptureShared/Records/EventLogEvent.h"

namespace halvo::EventSearch {

/// The rows of an event log that `keeps` wants; none without a log. Reads all of it. Throws `std::system_error` for a log that can't be read.
std::vector<EventLogEvent> eventsThat(const std::function<bool(EventLogEvent&)>& keeps, const std::filesystem::path& log);

}  // namespace halvo::EventSearch
