#include "agents/Consolidate/ConsolidateJob.h"

#include <fmt/format.h>

#include <algorithm>

#include "AmbitudeCore/Backends/ModelBackendError.h"
#include "AmbitudeCore/Coach/CoachOutputAudit.h"
#include "AmbitudeCore/Memory/ConsolidateLog.h"
#include "AmbitudeCore/Memory/DreamPowerPolicy.h"
#include "AmbitudeCore/Memory/MemoryConsolidationEvents.h"
#include "AmbitudeCore/Memory/MemoryStore.h"
#include "AmbitudeCore/Memory/MemoryWipeFilter.h"
#include "AmbitudeCore/Memory/MemoryWipeLog.h"
#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/EventLog/ClassifierLogTail.h"
#include "CaptureShared/EventLog/EventLogWriter.h"
#include "CaptureShared/Foundation/Match.h"

namespace halvo {

namespace {

constexpr int maxTokens = 8192;
/// Where the newest judgment is for certain: a row is a few hundred bytes.
constexpr std::size_t ticksTailBytes = 32 * 1024;

/// The newest end of a digested period that is over.
std::optional<std::int64_t> digestedUntil(std::span<const PeriodDigest> digests, std::int64_t nowMs) {
  std::optional<std::int64_t> until;
  for (const auto& digest : digests)
    if (digest.periodEndTsMs <= nowMs) until = std::max(until.value_or(digest.periodEndTsMs), digest.periodEndTsMs);
  return until;
}

/// The newest thing that a pass wrote, not after `nowMs`: a clock that was ahead must not hold up the passes until then.
std::optional<std::int64_t> lastPassEnded(std::span<const PeriodDigest> digests, const std::optional<StandingMemory>& standing,
                                          std::int64_t nowMs) {
  std::optional<std::int64_t> last;
  const auto take = [&](std::int64_t ms) {
    if (ms <= nowMs) last = std::max(last.value_or(ms), ms);
  };
  for (const auto& digest : digests) take(digest.generatedAtTsMs);
  if (standing) take(standing->regeneratedAtTsMs);
  return last;
}

/// By the end of the judgment log; one that is missing or unreadable says nothing.
DreamSchedule::Presence presence(const std::filesystem::path& dataRoot, std::int64_t nowMs) {
  try {
    std::vector<ClassifierTick> ticks;
    for (const auto& line : ClassifierLogTail::lastLines(DataPaths::checkerLog(dataRoot), ticksTailBytes))
      if (auto tick = ClassifierTick::decode(line)) ticks.push_back(std::move(*tick));
    return DreamSchedule::presence(ticks, nowMs);
  } catch (const std::system_error&) {
    return DreamSchedule::Presence::unknown;
  }
}

}  // namespace

int ConsolidateJob::run(const std::stop_token& stop) {
  startedMs_ = surroundings_.clock.nowMs();
  try {
    return runPass(stop);
  } catch (const Cancelled&) {
    surroundings_.log("ended before it was done; the next run goes on from here");
    return 0;
  } catch (const std::exception& error) {
    return failed(describeError(error), 0);
  }
}

int ConsolidateJob::runPass(const std::stop_token& stop) {
  const auto& root = surroundings_.dataRoot;
  digests_ = MemoryStore::readAllDigests(root);
  log_ = ConsolidationLogRead::read(DataPaths::events(root), digestedUntil(digests_, startedMs_), startedMs_);
  isDeferred_ = MemoryConsolidationEvents::isDeferredForPower(log_.events);
  const MemoryConsolidation::Pass pass{.events = log_.events,
                                       .dataRoot = root,
                                       .asOfMs = startedMs_,
                                       .stepIntervalSec = stepIntervalSec,
                                       .checkpoint = [this] { return checkpoint(); },
                                       .shouldYield = [this] { return !isForced() && shouldYield(); },
                                       .nowMs = surroundings_.clock.nowMs};
  const auto decision = decide(pass);
  const auto words = match(
      decision, [](const DreamSchedule::Dream& dream) { return fmt::format("dreaming: {} period(s) due", dream.periodCount); },
      [](const DreamSchedule::Hold& hold) { return "holding: " + hold.reason; });
  const bool holds = std::holds_alternative<DreamSchedule::Hold>(decision) && !isForced();
  if (options_.dryRun) {
    surroundings_.log(words + (isForced() ? " (started by hand, so it would run all the same)" : "") + "; dry run, nothing is done");
    return 0;
  }
  surroundings_.log(holds || !isForced() ? words : "started by hand");
  if (holds) return 0;

  const auto backend = surroundings_.makeBackend([this, stop] {
    if (stop.stop_requested() || (!isForced() && shouldYield())) return false;
    return !DreamPowerPolicy::passStop(
        DreamPowerPolicy::checkpoint(DreamGuardrails::Snapshot::live(*surroundings_.power), surroundings_.environment));
  });
  MemoryConsolidation::Work work;
  work.backend = backend.get();
  work.calendar = surroundings_.calendar;
  work.log = surroundings_.log;
  work.stop = stop;
  work.options.maxTokens = maxTokens;  // it may think, and nobody waits: both are the defaults
  if (options_.backfill) return conclude(MemoryConsolidation::backfillSequential(pass, *options_.backfill, work));
  if (options_.sequential) return conclude(MemoryConsolidation::runSequentialPass(pass, work));
  return conclude(MemoryConsolidation::runPass(pass, work));
}

DreamSchedule::Decision ConsolidateJob::decide(const MemoryConsolidation::Pass& pass) const {
  const auto& root = surroundings_.dataRoot;
  std::optional<StandingMemory> standing;
  try {
    standing = MemoryStore::readStanding(root);
  } catch (const MemoryStoreError&) {
    // The pass says so and makes it anew.
  }
  const auto lastEnded = lastPassEnded(digests_, standing, startedMs_);
  auto pending = static_cast<std::int64_t>(MemoryConsolidation::periodsWithoutDigest(pass, digests_).size());
  if (pending == 0) {
    // A pass that ended between its digests and the memory they make left work as well.
    const auto wipe = MemoryWipeLog::latestAtMs(MemoryWipeLog::defaultURL(root));
    const auto kept = static_cast<std::int64_t>(MemoryWipeFilter::digests(digests_, wipe).size());
    standing = MemoryWipeFilter::standing(std::move(standing), wipe);
    if (!options_.sequential && kept > 0 && (!standing || standing->digestCount != kept)) pending = 1;
  }
  return DreamSchedule::evaluate({.pendingPeriodCount = pending,
                                  .presence = presence(root, startedMs_),
                                  .latestEventAtMs = log_.latestEventMs,
                                  .lastPassEndedAtMs = lastEnded,
                                  .asOfMs = startedMs_});
}

bool ConsolidateJob::shouldYield() const {
  return presence(surroundings_.dataRoot, surroundings_.clock.nowMs()) == DreamSchedule::Presence::present;
}

std::optional<PassStop> ConsolidateJob::checkpoint() {
  const auto decision = DreamPowerPolicy::checkpoint(DreamGuardrails::Snapshot::live(*surroundings_.power), surroundings_.environment);
  if (const auto* low = std::get_if<DreamGuardrails::LowPower>(&decision); low && low->reason != saidLowPower_)
    surroundings_.log(saidLowPower_ = low->reason);
  auto stop = DreamPowerPolicy::passStop(decision);
  if (!stop && isDeferred_) {
    isDeferred_ = false;
    append(MemoryConsolidationEvents::deferredPowerEnded(surroundings_.clock.nowMs()));
  }
  return stop;
}

void ConsolidateJob::deferred(const PassStop& stop) {
  if (!DreamPowerPolicy::isPowerCausedStop(stop) || isDeferred_) return;
  isDeferred_ = true;
  append(MemoryConsolidationEvents::deferredPowerStarted(surroundings_.clock.nowMs()));
}

template <class Outcome>
int ConsolidateJob::conclude(const Outcome& outcome) {
  namespace Result = PassResult;
  const auto written = [this](const std::optional<std::string>& degenerate) {
    if (degenerate) append(MemoryConsolidationEvents::degenerate(*degenerate, surroundings_.clock.nowMs()));
    return 0;
  };
  const int status = match(
      outcome, [](const Result::LockHeld&) { return 0; }, [](const Result::Unchanged&) { return 0; },
      [this](const Result::Stopped& stopped) {
        deferred(stopped.stop);
        return 0;
      },
      [this](const Result::Failed& failure) { return failed(failure.reason, failure.periodsPending); },
      [&](const Result::Regenerated& done) { return written(done.degenerate); },
      [&](const Result::Folded& done) { return written(done.degenerate); });
  // The process that holds the lock looks over the night's output itself.
  if (!std::holds_alternative<Result::LockHeld>(outcome)) audit();
  return status;
}

int ConsolidateJob::failed(const std::string& reason, std::int64_t periodsPending) {
  surroundings_.log(std::string(ConsolidateLog::failurePrefix) + reason);
  append(MemoryConsolidationEvents::failed(reason, periodsPending, surroundings_.clock.nowMs()));
  return 1;
}

void ConsolidateJob::audit() {
  const auto result = NightlyCoachOutputAudit::evaluate(log_.events, startedMs_, NightlyCoachOutputAudit::lookbackHours, log_.overallCount);
  for (const auto& line : result.logLines) surroundings_.log(line);
  const auto event = NightlyCoachOutputAudit::event(result, startedMs_);
  if (!event) return;
  // Passes of one night look over much the same hours; the same findings are told once.
  for (const auto& earlier : log_.events) {
    const auto *before = earlier.detail.find("findings"), *now = event->detail.find("findings");
    if (earlier.type == event->type && before && now && *before == *now) return;
  }
  append(*event);
}

void ConsolidateJob::append(const EventLogEvent& event) {
  try {
    EventLogWriter::append(event, DataPaths::events(surroundings_.dataRoot));
  } catch (const EventLogWriterError& error) {
    surroundings_.log(fmt::format("could not record {}: {}", event.type, error.what()));
  }
}

}  // namespace halvo
