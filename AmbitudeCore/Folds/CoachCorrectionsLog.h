#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Records/CoachCorrection.h"
#include "CaptureShared/Records/EventLogEvent.h"

namespace halvo {

/// The `coach_correction_recorded` event: what someone told the coach about itself, as it enters the log.
namespace CoachCorrectionRecordedEvent {
struct Correction {
  std::string text = {};
  std::optional<CoachCorrection::Scope> scope = {};  ///< absent: both
  CoachCorrection::Lasts lasts = CoachCorrection::Lasts::untilChanged;
  std::int64_t asOfMs = 0;
};
/// Keys without a value (no scope, no end) are left out.
EventLogEvent make(const Correction& correction, const Calendar& calendar);
}  // namespace CoachCorrectionRecordedEvent

/// What the user has told the system about how it behaves.
namespace CoachCorrectionsLog {

/// The corrections that the event log holds, oldest first, so that nothing is lost when their own file is gone. A blank text is skipped. A
/// correction that was meant for a limited time but carries no end gets the shortest one, three hours, and never becomes a standing one.
std::vector<CoachCorrection> fromEvents(std::span<const EventLogEvent> events);
/// Those said at or before a moment that still apply at it.
std::vector<CoachCorrection> inForce(std::vector<CoachCorrection> corrections, std::int64_t asOfMs);

}  // namespace CoachCorrectionsLog
}  // namespace halvo
