#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <stop_token>
#include <string>
#include <vector>

#include "AmbitudeCore/Backends/ModelBackend.h"
#include "AmbitudeCore/Memory/PeriodRendering.h"
#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Foundation/Log.h"
#include "CaptureShared/Records/CoachCorrection.h"
#include "CaptureShared/Records/EventLogEvent.h"
#include "CaptureShared/Records/PeriodDigest.h"
#include "CaptureShared/Records/StandingMemory.h"

/// The steps of a pass: which periods are due, what one period came to, what all of them make. A step that calls the model throws what the
/// backend throws; a reply that came and can't be used is no error but a salvaged result.
namespace halvo::MemoryConsolidation {

using Period = PeriodRendering::Period;

/// Rows from before this system existed (2020-01-01) come from a clock that wasn't set: they begin no period.
inline constexpr std::int64_t earliestSensibleMs = 1'577'836'800'000;

struct Due {
  std::optional<std::int64_t> lastDigestedPeriodEndMs = {};
  std::optional<std::int64_t> earliestEventMs = {};
  std::int64_t asOfMs = 0;
  std::int64_t stepIntervalSec = 0;  ///< above 0
};
/// Periods of `stepIntervalSec`, aligned on the epoch clock, from the boundary of the last digested end (else of the earliest event) up to
/// the boundary of `asOfMs`. The period that holds `asOfMs` is never among them.
std::vector<Period> pendingPeriods(const Due& due);

/// What a step calls and tells.
struct Work {
  ModelBackend* backend = nullptr;
  ChatOptions options = {};
  Calendar calendar = Calendar::local();
  LogSink log = [](const std::string&) {};
  std::stop_token stop = {};
};

/// One call. `events` are sorted by time. A truncated or unusable reply gives a salvaged digest, and the log says so.
PeriodDigest digestPeriod(std::span<const EventLogEvent> events, const Period& period, std::int64_t generatedAtMs, const Work& work);

/// What standing memory is made of.
struct Sources {
  std::vector<PeriodDigest> digests = {};  ///< by their period's start
  std::vector<CoachCorrection> corrections = {};
  std::int64_t regeneratedAtMs = 0;
  std::optional<StandingMemory> present = {};  ///< what it keeps is left out last when the prompt gets too long
};
/// One call. An unusable reply keeps every candidate of all digests, unorganized.
StandingMemory regenerateStanding(const Sources& sources, const Work& work);
/// The same, folding `sources.digests` into `previous`. `digestCount` counts all that was folded.
StandingMemory regenerateStandingSequential(const std::optional<SequentialMemoryState>& previous, const Sources& sources, const Work& work);

/// Why a memory is no use although it was written; absent for one that is. Salvaged, or without a thread despite facts and lessons in
/// digests.
std::optional<std::string> degenerateStanding(std::span<const PeriodDigest> digests, const StandingMemory& standing);

}  // namespace halvo::MemoryConsolidation
