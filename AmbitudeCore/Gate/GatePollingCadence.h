#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <variant>

#include "CaptureShared/Foundation/Environment.h"
#include "CaptureShared/Foundation/RawValue.h"
#include "CaptureShared/Records/ClassifierTick.h"
#include "CaptureShared/Records/EventLogEvent.h"

/// When the gate, a model call that costs battery or money, may be consulted again: a wait that doubles while nothing changes and snaps
/// back to its floor the moment anything does. Pure; seconds and milliseconds come in as arguments.
namespace halvo::GatePollingCadence {

/// What the person is doing, as far as it matters for how often to ask.
enum class Regime { away, notAligned, onTask, noTask, unknown };

/// "IDLE" and more than `awaySec` without input are `away`; no state, and any state that says nothing ("ABSTAINED"), is `unknown`.
Regime classify(const std::optional<std::string>& classifierState, std::optional<double> idleAnySec, double awaySec);

struct Config {
  std::int64_t floorSec = 60;            ///< shortest interval between consultations; the ceiling of `notAligned` and `unknown` too
  std::int64_t awayCeilingSec = 600;     ///< longest interval while away
  std::int64_t onTaskCeilingSec = 300;   ///< longest interval while on task
  std::int64_t noTaskCeilingSec = 300;   ///< longest interval while no task is declared
  double growthFactor = 2.0;             ///< applied to the interval on each quiet consultation
  double awaySec = 300.0;                ///< idle seconds beyond which the person is away
  std::int64_t boundaryLeadSec = 180;    ///< how long before the end of a stated time the floor cadence begins

  /// The values made sound: the floor at least 1, each ceiling at least the floor, the growth at least 1, the rest at least 0.
  static Config make(Config raw);
  /// The defaults, with `awayCeilingSec` from AMBITCAP_GATE_AWAY_MAX_INTERVAL_SEC when that is a whole number of at least 60.
  static Config fromEnvironment(const Environment& environment);

  std::int64_t ceilingSec(Regime regime) const;
  bool operator==(const Config&) const = default;
};

/// What is remembered of the last consultation.
struct State {
  std::int64_t lastConsultedAtMs = 0;
  Regime regime = Regime::unknown;
  std::optional<std::string> declaredTask = {};
  std::int64_t intervalSec = 0;

  /// `intervalSec` as if it had obeyed the present configuration.
  std::int64_t clampedInterval(const Config& config) const;
  bool operator==(const State&) const = default;
};

struct RegimeChanged {
  Regime from = Regime::unknown;
  Regime to = Regime::unknown;
  bool operator==(const RegimeChanged&) const = default;
};
struct NoPriorState {
  bool operator==(const NoPriorState&) const = default;
};
struct DeclaredTaskChanged {
  bool operator==(const DeclaredTaskChanged&) const = default;
};
struct BoundaryWindow {
  bool operator==(const BoundaryWindow&) const = default;
};
struct MedsAskDue {
  bool operator==(const MedsAskDue&) const = default;
};
struct IntervalElapsed {
  bool operator==(const IntervalElapsed&) const = default;
};
/// Why the gate is consulted.
using Reason = std::variant<RegimeChanged, NoPriorState, DeclaredTaskChanged, BoundaryWindow, MedsAskDue, IntervalElapsed>;

struct Consult {
  Reason reason = NoPriorState{};
  bool operator==(const Consult&) const = default;
};
struct Skip {
  std::int64_t dueInSec = 0;  ///< a lower bound on the next useful wake
  bool operator==(const Skip&) const = default;
};
using Decision = std::variant<Consult, Skip>;

/// One moment, as every function here wants it.
struct Moment {
  std::int64_t nowMs = 0;
  Regime regime = Regime::unknown;
  std::optional<std::string> declaredTask = {};  ///< absent differs from present
  bool boundaryWindowActive = false;             ///< the end of a stated time is near or past
  bool medsAskDue = false;
};

/// May the gate be consulted now? A clock that stepped back reads as no time gone by.
Decision decide(const std::optional<State>& last, const Moment& moment, const Config& config = {});
/// The interval behind one more consultation: grown when the situation has `held`, else the floor.
std::int64_t nextInterval(std::int64_t previous, bool held, Regime regime, const Config& config = {});
/// The state to remember after a consultation.
State advanced(const std::optional<State>& from, const Moment& moment, const Config& config = {});

/// Types of events that record the machinery's own state; one of these never wakes the gate.
extern const std::set<std::string_view> bookkeepingEventTypes;
/// The time of the newest judgment or of the newest event that is not bookkeeping.
std::optional<std::int64_t> latestInputTsMs(std::span<const EventLogEvent> events, std::span<const ClassifierTick> ticks);

/// Held by the driver in memory: a new process starts with an empty one, and its first consultation is free.
struct WakeGuard {
  struct NoNewInput {
    bool operator==(const NoNewInput&) const = default;
  };
  using Outcome = std::variant<Skip, Consult, NoNewInput>;

  std::optional<std::int64_t> lastConsumedInputTsMs = {};
  std::optional<State> cadenceState = {};

  /// True when either side is absent.
  bool hasNewInput(std::optional<std::int64_t> latest) const;
  /// Moves only on `Consult`: input seen on a skip stays unconsumed and is seen again.
  Outcome evaluate(std::optional<std::int64_t> latestInputTsMs, const Moment& moment, const Config& config = {});

  bool operator==(const WakeGuard&) const = default;
};

/// The driver's log line of an outcome.
std::string logLine(const WakeGuard::Outcome& outcome);

}  // namespace halvo::GatePollingCadence

template <>
struct halvo::RawValues<halvo::GatePollingCadence::Regime> {
  using Regime = halvo::GatePollingCadence::Regime;
  static constexpr std::array table{std::pair{Regime::away, "away"}, std::pair{Regime::notAligned, "not_aligned"},
                                    std::pair{Regime::onTask, "on_task"}, std::pair{Regime::noTask, "no_task"},
                                    std::pair{Regime::unknown, "unknown"}};
};
