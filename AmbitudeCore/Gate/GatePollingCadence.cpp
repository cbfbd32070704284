#include "AmbitudeCore/Gate/GatePollingCadence.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include <fmt/format.h>

#include "AmbitudeCore/Folds/EventScan.h"
#include "AmbitudeCore/Folds/TimedTicks.h"
#include "CaptureShared/Foundation/Match.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo::GatePollingCadence {
namespace {
/// While either is due the gate is polled at the floor, and a change does not get under it. Someone away can't be asked.
bool holdsToFloor(const Moment& moment) {
  return (moment.boundaryWindowActive || moment.medsAskDue) && moment.regime != Regime::away;
}

std::int64_t elapsedSec(std::int64_t sinceMs, std::int64_t nowMs) { return nowMs < sinceMs ? 0 : (nowMs - sinceMs) / 1000; }
}  // namespace

const std::set<std::string_view> bookkeepingEventTypes{"coach_turn_failed",
                                                       "coach_service_problem",
                                                       "coach_service_restored",
                                                       "coach_battery_pause_began",
                                                       "coach_battery_pause_ended",
                                                       "coach_battery_pause_notice_shown",
                                                       "coach_battery_pause_notice_dismissed",
                                                       "coach_offline_fallback_began",
                                                       "coach_offline_fallback_ended",
                                                       "coach_offline_fallback_notice_shown",
                                                       "developer_checkin_requested",
                                                       "developer_checkin_forced",
                                                       "in_call_began",
                                                       "in_call_ended"};

Regime classify(const std::optional<std::string>& classifierState, std::optional<double> idleAnySec, double awaySec) {
  if (idleAnySec && *idleAnySec > awaySec) return Regime::away;
  if (classifierState == "IDLE") return Regime::away;
  if (classifierState == "NOT_ALIGNED") return Regime::notAligned;
  if (classifierState == "ON_TASK") return Regime::onTask;
  if (classifierState == "NO_TASK") return Regime::noTask;
  return Regime::unknown;
}

Config Config::make(Config raw) {
  raw.floorSec = std::max<std::int64_t>(raw.floorSec, 1);
  raw.awayCeilingSec = std::max(raw.awayCeilingSec, raw.floorSec);
  raw.onTaskCeilingSec = std::max(raw.onTaskCeilingSec, raw.floorSec);
  raw.noTaskCeilingSec = std::max(raw.noTaskCeilingSec, raw.floorSec);
  raw.growthFactor = std::max(1.0, raw.growthFactor);
  raw.awaySec = std::max(0.0, raw.awaySec);
  raw.boundaryLeadSec = std::max<std::int64_t>(raw.boundaryLeadSec, 0);
  return raw;
}

Config Config::fromEnvironment(const Environment& environment) {
  Config config;
  const auto text = value(environment, "AMBITCAP_GATE_AWAY_MAX_INTERVAL_SEC");
  const auto seconds = text ? Text::parseInteger(*text) : std::nullopt;
  if (seconds && *seconds >= 60) config.awayCeilingSec = *seconds;
  return make(config);
}

std::int64_t Config::ceilingSec(Regime regime) const {
  switch (regime) {
    case Regime::away: return awayCeilingSec;
    case Regime::onTask: return onTaskCeilingSec;
    case Regime::noTask: return noTaskCeilingSec;
    case Regime::notAligned:
    case Regime::unknown: return floorSec;
  }
  return floorSec;
}

std::int64_t State::clampedInterval(const Config& config) const {
  return std::min(std::max(intervalSec, config.floorSec), config.ceilingSec(regime));
}

Decision decide(const std::optional<State>& last, const Moment& moment, const Config& config) {
  if (!last) return Consult{NoPriorState{}};
  const auto elapsed = elapsedSec(last->lastConsultedAtMs, moment.nowMs);
  const auto atFloor = [&](Reason reason) -> Decision {
    if (config.floorSec > elapsed) return Skip{config.floorSec - elapsed};
    return Consult{reason};
  };
  if (holdsToFloor(moment)) return atFloor(moment.boundaryWindowActive ? Reason(BoundaryWindow{}) : Reason(MedsAskDue{}));
  if (moment.regime != last->regime) return Consult{RegimeChanged{.from = last->regime, .to = moment.regime}};
  if (moment.declaredTask != last->declaredTask) return Consult{DeclaredTaskChanged{}};
  const auto interval = last->clampedInterval(config);
  if (interval > elapsed) return Skip{interval - elapsed};
  return Consult{IntervalElapsed{}};
}

std::int64_t nextInterval(std::int64_t previous, bool held, Regime regime, const Config& config) {
  if (!held) return config.floorSec;
  const auto grown = std::ceil(config.growthFactor * static_cast<double>(std::max(previous, config.floorSec)));
  const auto ceiling = config.ceilingSec(regime);
  // Compared as doubles: a huge growth must not overflow before it is lowered, and one that is no number grows to the ceiling.
  return grown < static_cast<double>(ceiling) ? static_cast<std::int64_t>(grown) : ceiling;
}

State advanced(const std::optional<State>& from, const Moment& moment, const Config& config) {
  State next{.lastConsultedAtMs = moment.nowMs,
             .regime = moment.regime,
             .declaredTask = moment.declaredTask,
             .intervalSec = config.floorSec};
  const bool held = from && !holdsToFloor(moment) && moment.regime == from->regime && moment.declaredTask == from->declaredTask;
  if (held) next.intervalSec = nextInterval(from->clampedInterval(config), true, moment.regime, config);
  return next;
}

std::optional<std::int64_t> latestInputTsMs(std::span<const EventLogEvent> events, std::span<const ClassifierTick> ticks) {
  const auto ofTicks = TimedTicks::latestMs(ticks);
  const auto* newest = EventScan::newest(events, ofTicks.value_or(std::numeric_limits<std::int64_t>::min()),
                                         std::numeric_limits<std::int64_t>::max(),
                                         [](const EventLogEvent& event) { return !bookkeepingEventTypes.contains(event.type); });
  return newest ? std::optional(newest->tsMs) : ofTicks;
}

bool WakeGuard::hasNewInput(std::optional<std::int64_t> latest) const {
  return !latest || !lastConsumedInputTsMs || *latest > *lastConsumedInputTsMs;
}

WakeGuard::Outcome WakeGuard::evaluate(std::optional<std::int64_t> latestInputTsMs, const Moment& moment, const Config& config) {
  if (!hasNewInput(latestInputTsMs)) return NoNewInput{};
  return match(
      decide(cadenceState, moment, config), [](const Skip& skip) -> Outcome { return skip; },
      [&](const Consult& consult) -> Outcome {
        lastConsumedInputTsMs = latestInputTsMs;
        cadenceState = advanced(cadenceState, moment, config);
        return consult;
      });
}

std::string logLine(const WakeGuard::Outcome& outcome) {
  const auto told = match(
      outcome, [](const Skip& skip) { return fmt::format("skip, due in {} s", skip.dueInSec); },
      [](const Consult& consult) {
        return "consult, " + match(
                                 consult.reason,
                                 [](const RegimeChanged& change) {
                                   return fmt::format("regime changed from {} to {}", rawValue(change.from), rawValue(change.to));
                                 },
                                 [](const NoPriorState&) { return std::string("no prior state"); },
                                 [](const DeclaredTaskChanged&) { return std::string("declared task changed"); },
                                 [](const BoundaryWindow&) { return std::string("boundary window"); },
                                 [](const MedsAskDue&) { return std::string("meds ask due"); },
                                 [](const IntervalElapsed&) { return std::string("interval elapsed"); });
      },
      [](const WakeGuard::NoNewInput&) { return std::string("no new input"); });
  return "layer3 gate cadence: " + told;
}

}  // namespace halvo::GatePollingCadence
