#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <vector>

#include "CaptureShared/Records/EventLogEvent.h"

/// One reading of the event log for everything that the nightly job wants of it.
namespace halvo::ConsolidationLogRead {

struct Result {
  /// Sorted by time: of all days the corrections and what tells of deferrals; since `periodsSinceMs` what digests are made of, cut down to
  /// its words; the audit's window whole.
  std::vector<EventLogEvent> events = {};
  std::size_t overallCount = 0;                    ///< rows of the log
  std::optional<std::int64_t> latestEventMs = {};  ///< not after the moment of the reading
};
/// A missing log is an empty one. Throws `std::system_error` for one that can't be read. `periodsSinceMs`: where the digests end.
Result read(const std::filesystem::path& log, std::optional<std::int64_t> periodsSinceMs, std::int64_t nowMs);

}  // namespace halvo::ConsolidationLogRead
