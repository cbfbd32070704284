#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <span>

#include "AmbitudeCore/Memory/MemoryConsolidation.h"
#include "AmbitudeCore/Memory/PassOutcome.h"

/// Whole passes over the files. One at a time across processes, by the dream lock; each step's file is on disk before the next step begins,
/// so a pass may be killed anywhere. A pass throws `Cancelled` alone; every other trouble is `PassResult::Failed`, and the period it struck
/// stays pending.
namespace halvo::MemoryConsolidation {

struct Pass {
  std::span<const EventLogEvent> events = {};  ///< sorted by time
  std::filesystem::path dataRoot = {};
  std::int64_t asOfMs = 0;
  std::int64_t stepIntervalSec = 21'600;
  /// Asked before each model call; an answer ends the pass.
  std::function<std::optional<PassStop>()> checkpoint = [] { return std::nullopt; };
  std::function<bool()> shouldYield = [] { return false; };
  std::function<std::int64_t()> nowMs = {};  ///< for what is written and for the time left
};

/// The periods that have no digest yet.
std::vector<Period> periodsWithoutDigest(const Pass& pass, std::span<const PeriodDigest> digests);

/// Digests what is due, then regenerates standing memory from all digests.
PassOutcome runPass(const Pass& pass, const Work& work);
/// Digests what is due, then folds what is new into the sequential state, in one call.
SequentialPassOutcome runSequentialPass(const Pass& pass, const Work& work);
/// Folds digests one by one, oldest first, at most `limit` calls; the state is written after each.
SequentialBackfillOutcome backfillSequential(const Pass& pass, std::size_t limit, const Work& work);

}  // namespace halvo::MemoryConsolidation
