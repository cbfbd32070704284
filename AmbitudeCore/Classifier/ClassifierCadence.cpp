#include "AmbitudeCore/Classifier/ClassifierCadence.h"

#include <algorithm>
#include <cmath>

namespace halvo::ClassifierCadence {
namespace {

bool isWarmingUp(const Episode& episode, const Config& config) {
  return episode.minutesSinceDeclared && *episode.minutesSinceDeclared * 60 < static_cast<double>(config.warmupSec);
}

bool isGapped(const State& last, std::int64_t nowMs, const Config& config) {
  return last.pausedForCall || nowMs - last.lastRanAtMs > config.regimeGapSec * 1000;
}

}  // namespace

std::int64_t State::interval(const Config& config) const {
  const double runSec = static_cast<double>(std::max<std::int64_t>(lastJudgedAtMs - runStartedAtMs, 0)) / 1000;
  const auto floor = static_cast<double>(config.floorSec);
  const double grown = floor * std::pow(std::max(runSec / floor, 1.0), config.growthExponent);
  if (!std::isfinite(grown)) return config.floorSec;
  const auto ceiling = config.ceiling(lastVerdict);
  if (grown >= static_cast<double>(ceiling)) return ceiling;
  return std::clamp<std::int64_t>(std::llround(grown), config.floorSec, ceiling);
}

std::int64_t State::effectiveInterval(const Episode& episode, const Config& config) const {
  const auto plain = interval(config);
  return volatility >= 1 || isWarmingUp(episode, config) ? std::min(plain, config.floorSec) : plain;
}

Decision decide(const Moment& moment, const Config& config) {
  if (!moment.last) return Judge{Reason::noPriorState};
  const auto& last = *moment.last;
  if (last.pausedForCall) return Judge{Reason::resumedAfterCall};
  const auto elapsed = std::max<std::int64_t>(moment.nowMs - last.lastJudgedAtMs, 0) / 1000;
  // The plain ceiling whatever the verdict: it bounds the silence, the on-task ceiling only the interval.
  if (elapsed >= config.ceilingSec) return Judge{Reason::ceilingReached};
  // Once only: the pass that sees the time come due moves lastRanAtMs past it.
  if (const auto due = moment.episode.estimateBoundaryMs; due && last.lastRanAtMs < *due && moment.nowMs >= *due)
    return Judge{Reason::estimateBoundary};
  if (moment.frontmostApp != last.lastFrontmostApp) return Judge{Reason::appChanged};
  if (moment.windowTitle != last.lastWindowTitle) return Judge{Reason::titleChanged};
  if (moment.away != last.lastAway) return Judge{Reason::awayChanged};
  const auto interval = last.effectiveInterval(moment.episode, config);
  if (interval > elapsed) return Skip{interval - elapsed};
  if (last.volatility > 0) return Judge{Reason::isVolatile};
  return Judge{isWarmingUp(moment.episode, config) ? Reason::episodeOpening : Reason::intervalElapsed};
}

RunOutcome runOutcome(const Moment& moment, std::string_view verdict, const Config& config) {
  if (!moment.last) return RunOutcome::verdictMoved;
  const auto& last = *moment.last;
  const bool sameVerdict = verdict == last.lastVerdict;
  const auto& task = moment.episode.declaredTask;
  // Two tasks on either side of a silence are a gap, not a declaration: nothing ties the runs together.
  if (isGapped(last, moment.nowMs, config)) return RunOutcome::regimeGap;
  if (task && last.lastDeclaredTask && *task != *last.lastDeclaredTask) return RunOutcome::newDeclaration;
  const bool returning = last.excursionFromApp && moment.frontmostApp == last.excursionFromApp && sameVerdict;
  if (returning && last.runStartedBeforeExcursionMs) return RunOutcome::returnedFromExcursion;
  const bool same = sameVerdict && moment.frontmostApp == last.lastFrontmostApp && moment.windowTitle == last.lastWindowTitle &&
                    moment.away == last.lastAway;
  return same ? RunOutcome::held : RunOutcome::verdictMoved;
}

State advanced(const Moment& moment, std::string_view verdict, const Config& config) {
  State next{.lastRanAtMs = moment.nowMs,
             .lastJudgedAtMs = moment.nowMs,
             .runStartedAtMs = moment.nowMs,
             .lastVerdict = std::string(verdict),
             .lastFrontmostApp = moment.frontmostApp,
             .lastWindowTitle = moment.windowTitle,
             .lastAway = moment.away,
             .lastDeclaredTask = moment.episode.declaredTask};
  if (!moment.last) return next;
  const auto& last = *moment.last;
  if (!next.lastDeclaredTask) next.lastDeclaredTask = last.lastDeclaredTask;
  next.volatility = verdict != last.lastVerdict ? config.volatilityBoost : std::max<std::int64_t>(last.volatility - 1, 0);

  const auto keepExcursion = [&] {
    if (moment.frontmostApp == last.lastFrontmostApp) {
      next.excursionFromApp = last.excursionFromApp;
      next.runStartedBeforeExcursionMs = last.runStartedBeforeExcursionMs;
    } else {
      next.excursionFromApp = last.lastFrontmostApp;
      next.runStartedBeforeExcursionMs = last.runStartedAtMs;
    }
  };
  switch (runOutcome(moment, verdict, config)) {
    case RunOutcome::regimeGap:
    case RunOutcome::newDeclaration: break;
    case RunOutcome::returnedFromExcursion:
      // A quick look at another app and back restores the run's age, and costs no judgments at the floor.
      next.runStartedAtMs = *last.runStartedBeforeExcursionMs;
      next.volatility = last.volatility;
      break;
    case RunOutcome::held:
      next.runStartedAtMs = last.runStartedAtMs;
      keepExcursion();
      break;
    case RunOutcome::verdictMoved: keepExcursion(); break;
  }
  return next;
}

State heartbeat(State from, std::int64_t nowMs) {
  from.lastRanAtMs = nowMs;
  return from;
}

State heartbeatPausedForPower(State from, std::int64_t nowMs) {
  from.lastRanAtMs = nowMs;
  from.pausedForPower = true;
  from.callHoldSinceMs = std::nullopt;
  return from;
}

State heartbeatPausedForCall(State from, std::int64_t nowMs, std::optional<std::int64_t> holdSinceMs) {
  from.lastRanAtMs = nowMs;
  from.pausedForCall = true;
  from.callHoldSinceMs = holdSinceMs;
  return from;
}

}  // namespace halvo::ClassifierCadence
