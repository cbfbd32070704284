#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "CaptureShared/EventLog/JSONLAppend.h"
#include "CaptureShared/Records/EventLogEvent.h"

namespace halvo {

using EventLogWriterError = JSONLAppendError;

/// The one way into `io-layer/events.jsonl`.
namespace EventLogWriter {

inline constexpr std::string_view defaultProcessName = "AmbitudeCoach";
/// AMBITCAP_BUILD_VERSION as it was at the first call, or "dev".
const std::string& defaultBuildVersion();

/// Appends one row, with `_producer` {process, version, pid} added to its detail; a detail that is no object is replaced by an empty one.
/// Throws `EventLogWriterError`.
void append(const EventLogEvent& event, const std::filesystem::path& file, std::string_view processName = defaultProcessName,
            std::string_view buildVersion = defaultBuildVersion());
/// One row after the other, stopping at the first failure; what was written before it stays.
void append(const std::vector<EventLogEvent>& events, const std::filesystem::path& file, std::string_view processName = defaultProcessName,
            std::string_view buildVersion = defaultBuildVersion());

}  // namespace EventLogWriter

}  // namespace halvo
