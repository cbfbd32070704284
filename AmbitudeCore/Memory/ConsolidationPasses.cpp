#include "AmbitudeCore/Memory/ConsolidationPasses.h"

#include <fmt/format.h>

#include <algorithm>
#include <system_error>
#include <unordered_set>

#include "AmbitudeCore/Backends/ModelBackendError.h"
#include "AmbitudeCore/Folds/CoachCorrectionsLog.h"
#include "AmbitudeCore/Memory/DreamLock.h"
#include "AmbitudeCore/Memory/MemoryStore.h"
#include "AmbitudeCore/Memory/MemoryWipeFilter.h"
#include "AmbitudeCore/Memory/MemoryWipeLog.h"
#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Signals/SignalsStaleness.h"

namespace halvo::MemoryConsolidation {

namespace {

/// Ends a pass from within; never leaves this file.
struct StopPass {
  PassStop stop;
};

void stopIfTold(const Pass& pass, const Work& work) {
  throwIfStopped(work.stop);
  if (const auto stop = pass.checkpoint()) throw StopPass{*stop};
  if (pass.shouldYield()) throw StopPass{{PassStop::Kind::yielded, "they are back at the machine"}};
}

std::string leftText(std::int64_t elapsedMs, std::size_t done, std::size_t left) {
  if (left == 0) return "";
  return ", about " + SignalsStaleness::humanDuration(elapsedMs / static_cast<std::int64_t>(done) * static_cast<std::int64_t>(left)) +
         " left";
}

/// Writes one digest for each pending period, oldest first. `pending` counts down as they are written.
std::vector<PeriodDigest> digestPending(const Pass& pass, const std::vector<Period>& periods, std::size_t& pending, const Work& work) {
  std::vector<PeriodDigest> written;
  const auto startedMs = pass.nowMs();
  for (const auto& period : periods) {
    stopIfTold(pass, work);
    auto digest = digestPeriod(pass.events, period, pass.nowMs(), work);
    MemoryStore::writeDigest(digest, pass.dataRoot);
    --pending;
    work.log(fmt::format("period {} of {} ({}){}{}", written.size() + 1, periods.size(), ISO8601::utcSeconds(period.startMs),
                         leftText(pass.nowMs() - startedMs, written.size() + 1, pending),
                         digest.salvaged ? " [DEGRADED -- period lost, never retried]" : ""));
    work.log(fmt::format("  facts: {}, lessons: {}", digest.facts.size(), digest.lessons.size()));
    written.push_back(std::move(digest));
  }
  return written;
}

struct Taken {
  std::vector<PeriodDigest> digests;  ///< all on disk
  std::size_t newDigests = 0;
};
Taken digestWhatIsDue(const Pass& pass, std::vector<PeriodDigest> onDisk, std::size_t& pending, const Work& work) {
  const auto periods = periodsWithoutDigest(pass, onDisk);
  pending = periods.size();
  auto written = digestPending(pass, periods, pending, work);
  const auto count = written.size();
  std::ranges::move(written, std::back_inserter(onDisk));
  std::ranges::stable_sort(onDisk, {}, &PeriodDigest::periodStartTsMs);
  return {std::move(onDisk), count};
}

std::optional<std::int64_t> wipeAt(const Pass& pass, const Work& work) {
  const auto wipe = MemoryWipeLog::latestAtMs(MemoryWipeLog::defaultURL(pass.dataRoot));
  if (wipe) work.log(fmt::format("honouring memory wipe requested at {} -- excluding digests before it", ISO8601::utcSeconds(*wipe)));
  return wipe;
}

/// Their own file where there is one, else what the event log holds of them.
std::vector<CoachCorrection> corrections(const Pass& pass, std::optional<std::int64_t> wipe) {
  std::vector<CoachCorrection> list;
  try {
    list = CoachCorrectionsLog::readAll(CoachCorrectionsLog::defaultURL(pass.dataRoot));
  } catch (const std::system_error& error) {
    if (error.code() != std::errc::no_such_file_or_directory) throw;
    list = CoachCorrectionsLog::fromEvents(pass.events);
  }
  return MemoryWipeFilter::corrections(CoachCorrectionsLog::inForce(std::move(list), pass.asOfMs), wipe);
}

/// Runs a pass's body under the lock and turns how it ended into an outcome.
template <class Outcome, class F>
Outcome underLock(const Pass& pass, const char* heldElsewhere, const Work& work, F&& body) {
  const auto lock = DreamLock::acquire(pass.dataRoot);
  if (std::holds_alternative<DreamLock::HeldElsewhere>(lock)) {
    work.log(heldElsewhere);
    return PassResult::LockHeld{};
  }
  if (const auto* unavailable = std::get_if<DreamLock::Unavailable>(&lock))
    work.log("dream lock unavailable (" + unavailable->reason + ") -- proceeding without cross-process protection");
  else
    MemoryStore::removeScraps(pass.dataRoot);
  std::size_t pending = 0;
  try {
    return std::forward<F>(body)(pending);
  } catch (const StopPass& told) {
    work.log(fmt::format("stopping: {} ({} period(s) still pending)", told.stop.reason, pending));
    return PassResult::Stopped{told.stop};
  } catch (const Cancelled&) {
    throw;
  } catch (const std::exception& error) {
    return PassResult::Failed{describeError(error), static_cast<std::int64_t>(pending)};
  }
}

/// A damaged standing file is made anew: everything in it comes from the digests.
std::optional<StandingMemory> readStanding(const Pass& pass, const Work& work) {
  try {
    return MemoryStore::readStanding(pass.dataRoot);
  } catch (const MemoryStoreError& error) {
    work.log(std::string(error.what()) + "; it is made anew from the digests");
    return std::nullopt;
  }
}

bool mustRegenerate(std::size_t newDigests, std::size_t kept, const std::optional<StandingMemory>& standing, const Work& work) {
  if (kept == 0) return false;
  if (newDigests > 0) return true;
  const auto counted = standing ? static_cast<std::size_t>(standing->digestCount) : 0;
  if (counted != kept) {
    work.log(fmt::format("{} digest(s) on disk not yet in standing memory, regenerating it", kept > counted ? kept - counted : kept));
    return true;
  }
  if (standing && standing->salvaged) {
    work.log("no new digests -- standing memory is SALVAGED, regenerating to repair it");
    return true;
  }
  return false;
}

void logStanding(const StandingMemory& memory, const Work& work) {
  work.log(fmt::format("standing memory: {} thread(s), {} fact(s), {} lesson(s)", memory.threads.size(), memory.facts.size(),
                       memory.lessons.size()));
}

std::optional<std::string> tellIfDegenerate(std::span<const PeriodDigest> digests, const StandingMemory& memory, const Work& work) {
  auto reason = degenerateStanding(digests, memory);
  if (reason && !memory.salvaged) work.log("WARNING: degenerate regeneration: " + *reason);
  return reason;
}

// The sequential strategy.

/// The state as the wipe leaves it: of a memory that is forgotten nothing counts as folded.
std::optional<SequentialMemoryState> sequentialState(const Pass& pass, std::optional<std::int64_t> wipe) {
  auto state = MemoryStore::readSequentialState(pass.dataRoot);
  if (state && !MemoryWipeFilter::standing(state->standingMemory, wipe)) state.reset();
  return state;
}

std::vector<PeriodDigest> unfolded(std::vector<PeriodDigest> digests, const std::optional<SequentialMemoryState>& state) {
  if (!state) return digests;
  const std::unordered_set<std::int64_t> folded(state->foldedPeriodStartsTsMs.begin(), state->foldedPeriodStartsTsMs.end());
  std::erase_if(digests, [&](const PeriodDigest& digest) { return folded.contains(digest.periodStartTsMs); });
  return digests;
}

/// Folds digests into a state in one call and writes it.
PassResult::Folded fold(const std::optional<SequentialMemoryState>& state, const Sources& sources, const Pass& pass, const Work& work) {
  SequentialMemoryState next{.standingMemory = regenerateStandingSequential(state, sources, work)};
  if (state) next.foldedPeriodStartsTsMs = state->foldedPeriodStartsTsMs;
  for (const auto& digest : sources.digests) next.foldedPeriodStartsTsMs.push_back(digest.periodStartTsMs);
  MemoryStore::writeSequentialState(next, pass.dataRoot);
  const auto& memory = next.standingMemory;
  work.log(fmt::format("sequential standing memory: {} thread(s), {} fact(s), {} lesson(s), {} period(s) folded total",
                       memory.threads.size(), memory.facts.size(), memory.lessons.size(), next.foldedPeriodStartsTsMs.size()));
  auto degenerate = tellIfDegenerate(sources.digests, memory, work);
  return {std::move(next), std::move(degenerate)};
}

constexpr const char* sequentialHeld = "another process already holds the dream lock -- skipping this sequential pass";

SequentialBackfillOutcome backfill(const Pass& pass, std::size_t limit, const Work& work) {
  auto readAtMs = pass.nowMs();
  auto wipe = wipeAt(pass, work);
  auto state = sequentialState(pass, wipe);
  const auto open = unfolded(MemoryWipeFilter::digests(MemoryStore::readAllDigests(pass.dataRoot), wipe), state);
  if (open.empty()) {
    work.log("nothing to backfill -- every digest on disk is already folded");
    return PassResult::Unchanged{};
  }
  const auto count = std::min(limit, open.size());
  if (count == 0) {
    work.log(fmt::format("a limit of {} leaves nothing to backfill this call", limit));
    return PassResult::Unchanged{};
  }
  work.log(fmt::format("backfilling {} of {} unfolded digest(s) (one fold call each)...", count, open.size()));
  PassResult::Folded last;
  for (std::size_t i = 0; i < count; ++i) {
    if (i > 0) {
      readAtMs = pass.nowMs();
      const auto later = MemoryWipeLog::latestAtMs(MemoryWipeLog::defaultURL(pass.dataRoot));
      // Forgotten meanwhile: what was folded so far is of before the wipe, and so are the digests at hand.
      if (later != wipe) break;
    }
    stopIfTold(pass, work);
    work.log(fmt::format("folding digest {} (dated {})", i + 1, ISO8601::utcSeconds(open[i].periodStartTsMs)));
    last = fold(state, {.digests = {open[i]}, .corrections = corrections(pass, wipe), .regeneratedAtMs = readAtMs}, pass, work);
    state = last.state;
  }
  return last;
}

}  // namespace

std::vector<Period> periodsWithoutDigest(const Pass& pass, std::span<const PeriodDigest> digests) {
  Due due{.asOfMs = pass.asOfMs, .stepIntervalSec = pass.stepIntervalSec};
  std::unordered_set<std::int64_t> done;
  for (const auto& digest : digests) {
    done.insert(digest.periodStartTsMs);
    // One of a clock that was ahead must not hold up the periods until then.
    if (digest.periodEndTsMs <= pass.asOfMs)
      due.lastDigestedPeriodEndMs = std::max(due.lastDigestedPeriodEndMs.value_or(digest.periodEndTsMs), digest.periodEndTsMs);
  }
  const auto first = std::ranges::lower_bound(pass.events, earliestSensibleMs, {}, &EventLogEvent::tsMs);
  if (first != pass.events.end()) due.earliestEventMs = first->tsMs;
  auto periods = pendingPeriods(due);
  std::erase_if(periods, [&](const Period& period) { return done.contains(period.startMs); });
  return periods;
}

PassOutcome runPass(const Pass& pass, const Work& work) {
  return underLock<PassOutcome>(
      pass, "another process already holds the dream lock -- skipping this pass", work, [&](std::size_t& pending) -> PassOutcome {
        auto onDisk = MemoryStore::readAllDigests(pass.dataRoot);
        work.log(fmt::format("{} digest(s) on disk, {} period(s) pending", onDisk.size(), periodsWithoutDigest(pass, onDisk).size()));
        auto taken = digestWhatIsDue(pass, std::move(onDisk), pending, work);
        // Before the wipe is read: a memory made of what was forgotten a moment later counts as older than that wipe.
        const auto readAtMs = pass.nowMs();
        const auto wipe = wipeAt(pass, work);
        auto digests = MemoryWipeFilter::digests(std::move(taken.digests), wipe);
        auto standing = MemoryWipeFilter::standing(readStanding(pass, work), wipe);
        if (!mustRegenerate(taken.newDigests, digests.size(), standing, work)) return PassResult::Unchanged{};
        Sources sources{.digests = std::move(digests),
                        .corrections = corrections(pass, wipe),
                        .regeneratedAtMs = readAtMs,
                        .present = std::move(standing)};
        stopIfTold(pass, work);
        work.log(fmt::format("regenerating standing memory from {} digest(s) and {} correction(s)", sources.digests.size(),
                             sources.corrections.size()));
        auto memory = regenerateStanding(sources, work);
        MemoryStore::writeStanding(memory, pass.dataRoot);
        logStanding(memory, work);
        auto degenerate = tellIfDegenerate(sources.digests, memory, work);
        return PassResult::Regenerated{std::move(memory), std::move(degenerate)};
      });
}

SequentialPassOutcome runSequentialPass(const Pass& pass, const Work& work) {
  return underLock<SequentialPassOutcome>(pass, sequentialHeld, work, [&](std::size_t& pending) -> SequentialPassOutcome {
    auto onDisk = MemoryStore::readAllDigests(pass.dataRoot);
    work.log(fmt::format("dream-pass-sequential: {} period(s) pending, {} already-digested period(s) not yet folded",
                         periodsWithoutDigest(pass, onDisk).size(),
                         unfolded(onDisk, MemoryStore::readSequentialState(pass.dataRoot)).size()));
    auto taken = digestWhatIsDue(pass, std::move(onDisk), pending, work);
    const auto readAtMs = pass.nowMs();
    const auto wipe = wipeAt(pass, work);
    const auto state = sequentialState(pass, wipe);
    auto open = unfolded(MemoryWipeFilter::digests(std::move(taken.digests), wipe), state);
    if (open.empty()) return PassResult::Unchanged{};
    stopIfTold(pass, work);
    work.log(fmt::format("folding {} not-yet-folded digest(s) into sequential standing memory...", open.size()));
    return fold(state, {.digests = std::move(open), .corrections = corrections(pass, wipe), .regeneratedAtMs = readAtMs}, pass, work);
  });
}

SequentialBackfillOutcome backfillSequential(const Pass& pass, std::size_t limit, const Work& work) {
  return underLock<SequentialBackfillOutcome>(pass, sequentialHeld, work, [&](std::size_t&) { return backfill(pass, limit, work); });
}

}  // namespace halvo::MemoryConsolidation
