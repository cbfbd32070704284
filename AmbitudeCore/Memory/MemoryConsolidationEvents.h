#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "CaptureShared/Records/EventLogEvent.h"

/// What the nightly job tells the event log.
namespace halvo::MemoryConsolidationEvents {

inline constexpr std::string_view failedType = "memory_consolidation_failed";
inline constexpr std::string_view degenerateType = "memory_consolidation_degenerate";
inline constexpr std::string_view deferredStartedType = "memory_consolidation_deferred_power_started";
inline constexpr std::string_view deferredEndedType = "memory_consolidation_deferred_power_ended";

EventLogEvent failed(const std::string& reason, std::int64_t periodsPending, std::int64_t asOfMs);
EventLogEvent degenerate(const std::string& reason, std::int64_t asOfMs);
EventLogEvent deferredPowerStarted(std::int64_t asOfMs);
EventLogEvent deferredPowerEnded(std::int64_t asOfMs);

/// Whether the newest of the two deferral events began one.
bool isDeferredForPower(std::span<const EventLogEvent> events);

}  // namespace halvo::MemoryConsolidationEvents
