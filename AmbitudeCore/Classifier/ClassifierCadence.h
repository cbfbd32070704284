#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include "CaptureShared/Foundation/Environment.h"
#include "CaptureShared/Foundation/RawValue.h"

/// When the classifier looks again. The interval stretches while a verdict holds, snaps back when the situation changes, and is short in
/// the first minutes of a task. Pure but for `read` and `write`.
namespace halvo::ClassifierCadence {

struct Config {
  std::int64_t floorSec = 60;           ///< shortest interval
  std::int64_t ceilingSec = 300;        ///< longest interval, and the longest gap between judgments whatever the interval says
  std::int64_t onTaskCeilingSec = 120;  ///< longest interval while the last verdict is "ON_TASK"
  double growthExponent = 0.57;         ///< growth of the interval with the run's age; below 1 it slows down
  std::int64_t warmupSec = 600;         ///< how long behind a declaration the floor applies
  std::int64_t regimeGapSec = 240;      ///< a longer silence between passes starts a new run
  std::int64_t volatilityBoost = 3;     ///< judgments at the floor after a verdict moved

  /// The values brought into their ranges: floor at least 1, ceilings not below it, the on-task ceiling not above the ceiling, the exponent
  /// within 0…1, the rest not below 0.
  static Config make(Config values);
  /// The defaults, changed by AMBITCAP_CLASSIFY_MIN_INTERVAL_SEC and AMBITCAP_CLASSIFY_MAX_INTERVAL_SEC: positive integers, anything else
  /// is ignored, and so is a maximum below the floor.
  static Config fromEnvironment(const Environment& environment);

  std::int64_t ceiling(std::string_view verdict) const { return verdict == "ON_TASK" ? onTaskCeilingSec : ceilingSec; }
  bool operator==(const Config&) const = default;
};

/// What is known of the present declaration.
struct Episode {
  std::optional<double> minutesSinceDeclared = {};
  std::optional<std::string> declaredTask = {};
  std::optional<std::int64_t> estimateBoundaryMs = {};  ///< when the declared time is up
  bool operator==(const Episode&) const = default;
};

/// The whole content of `classifier-cadence.json`.
struct State {
  std::int64_t v = 1;                ///< format version
  std::int64_t lastRanAtMs = 0;      ///< last time the loop came through, judged or not
  std::int64_t lastJudgedAtMs = 0;   ///< 0 when nothing was judged yet
  std::int64_t runStartedAtMs = 0;   ///< when the present run of a steady verdict began
  std::string lastVerdict = {};
  std::optional<std::string> lastFrontmostApp = {};
  std::optional<std::string> lastWindowTitle = {};
  bool lastAway = false;
  std::optional<std::string> lastDeclaredTask = {};
  std::int64_t volatility = 0;  ///< remaining judgments at the floor
  std::optional<std::string> excursionFromApp = {};                    ///< the app left in a short excursion
  std::optional<std::int64_t> runStartedBeforeExcursionMs = {};  ///< the run start to restore on return
  bool pausedForPower = false;
  bool pausedForCall = false;
  std::optional<std::int64_t> callHoldSinceMs = {};

  /// A state for a loop that has come through without ever having judged: the next free pass judges.
  static State beforeFirstJudgment(std::int64_t nowMs);

  /// Seconds to the next judgment by the age of the run alone.
  std::int64_t interval(const Config& config) const;
  /// The interval, but no more than the floor while the verdict is volatile or the task is new.
  std::int64_t effectiveInterval(const Episode& episode, const Config& config) const;

  std::string encode() const;
  /// Absent for anything that is not a state of version 1.
  static std::optional<State> decode(std::string_view text);
  bool operator==(const State&) const = default;
};

enum class Reason {
  noPriorState, ceilingReached, appChanged, titleChanged, awayChanged, intervalElapsed, episodeOpening, isVolatile, resumedAfterCall,
  estimateBoundary
};

struct Judge {
  Reason reason = Reason::noPriorState;
  bool operator==(const Judge&) const = default;
};
struct Skip {
  std::int64_t dueInSec = 0;
  bool operator==(const Skip&) const = default;
};
using Decision = std::variant<Judge, Skip>;

/// What a judgment did to the run.
enum class RunOutcome { held, verdictMoved, regimeGap, newDeclaration, returnedFromExcursion };

/// One look at the moment.
struct Moment {
  std::int64_t nowMs = 0;
  std::optional<State> last = {};
  std::optional<std::string> frontmostApp = {};
  std::optional<std::string> windowTitle = {};
  bool away = false;
  Episode episode = {};
};

/// Whether to judge now, by the first rule that fires. A clock that went backward counts as no time passed. Never throws.
Decision decide(const Moment& moment, const Config& config = {});

/// The state behind a judgment with `verdict`, made from `moment.last`.
State advanced(const Moment& moment, std::string_view verdict, const Config& config = {});
/// What that judgment does to the run; `verdictMoved` without a previous state.
RunOutcome runOutcome(const Moment& moment, std::string_view verdict, const Config& config = {});

/// The loop came through without judging.
State heartbeat(State from, std::int64_t nowMs);
State heartbeatPausedForPower(State from, std::int64_t nowMs);
State heartbeatPausedForCall(State from, std::int64_t nowMs, std::optional<std::int64_t> holdSinceMs);

/// Absent when the file is missing, unreadable or no state.
std::optional<State> read(const std::filesystem::path& file);
/// Replaces the file by one rename. Throws `std::system_error`; a lost write costs one early judgment at worst.
void write(const State& state, const std::filesystem::path& file);

}  // namespace halvo::ClassifierCadence

namespace halvo {
template <>
struct RawValues<ClassifierCadence::Reason> {
  using R = ClassifierCadence::Reason;
  static constexpr std::array table{std::pair{R::noPriorState, "no prior tick"},
                                    std::pair{R::ceilingReached, "ceiling reached"},
                                    std::pair{R::appChanged, "frontmost app changed"},
                                    std::pair{R::titleChanged, "window title changed"},
                                    std::pair{R::awayChanged, "away state changed"},
                                    std::pair{R::intervalElapsed, "interval elapsed"},
                                    std::pair{R::episodeOpening, "task just declared"},
                                    std::pair{R::isVolatile, "verdict recently moved"},
                                    std::pair{R::resumedAfterCall, "resumed after a call"},
                                    std::pair{R::estimateBoundary, "declared estimate came due"}};
};
}  // namespace halvo
