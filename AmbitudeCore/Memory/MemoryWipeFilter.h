#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "CaptureShared/Records/CoachCorrection.h"
#include "CaptureShared/Records/PeriodDigest.h"
#include "CaptureShared/Records/StandingMemory.h"

/// What a wipe leaves. Without a wipe everything stays; what bears the wipe's own millisecond stays too. Pure.
namespace halvo::MemoryWipeFilter {

/// Digests whose period started at or after the wipe.
std::vector<PeriodDigest> digests(std::vector<PeriodDigest> list, std::optional<std::int64_t> wipeAtMs);
/// Absent when it was regenerated before the wipe.
std::optional<StandingMemory> standing(std::optional<StandingMemory> memory, std::optional<std::int64_t> wipeAtMs);
/// Corrections made at or after the wipe.
std::vector<CoachCorrection> corrections(std::vector<CoachCorrection> list, std::optional<std::int64_t> wipeAtMs);

}  // namespace halvo::MemoryWipeFilter
