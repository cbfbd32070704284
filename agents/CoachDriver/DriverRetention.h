#pragma once

#include <cstdint>

#include "CaptureShared/EventLog/RetainedDriverLog.h"

/// What of years of logs the driver holds in memory: the last two days whole, and of the time before only what still has a say.
namespace halvo::DriverRetention {

/// Longer than anything that is shown to a model reaches back (24 hours and a step of one).
inline constexpr std::int64_t wholeMs = 48 * 3'600'000LL;

/// Older judgments go. Of older events declarations, corrections, check-ins, and those about windows, quiet, calls, the service and setup stay; of an older message
/// stays who spoke. `_producer` is nobody's here. `nowMs` is the start of the program.
RetainedDriverLog::Keep keep(std::int64_t nowMs);

}  // namespace halvo::DriverRetention
