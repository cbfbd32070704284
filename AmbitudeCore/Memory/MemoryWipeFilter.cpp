#include "AmbitudeCore/Memory/MemoryWipeFilter.h"

namespace halvo::MemoryWipeFilter {

std::vector<PeriodDigest> digests(std::vector<PeriodDigest> list, std::optional<std::int64_t> wipeAtMs) {
  if (wipeAtMs) std::erase_if(list, [&](const PeriodDigest& digest) { return digest.periodStartTsMs < *wipeAtMs; });
  return list;
}

std::optional<StandingMemory> standing(std::optional<StandingMemory> memory, std::optional<std::int64_t> wipeAtMs) {
  if (wipeAtMs && memory && memory->regeneratedAtTsMs < *wipeAtMs) return std::nullopt;
  return memory;
}

std::vector<CoachCorrection> corrections(std::vector<CoachCorrection> list, std::optional<std::int64_t> wipeAtMs) {
  if (wipeAtMs) std::erase_if(list, [&](const CoachCorrection& correction) { return correction.atMs < *wipeAtMs; });
  return list;
}

}  // namespace halvo::MemoryWipeFilter
