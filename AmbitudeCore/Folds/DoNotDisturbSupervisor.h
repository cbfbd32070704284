#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <variant>

#include "AmbitudeCore/Folds/DoNotDisturbWindow.h"
#include "CaptureShared/Records/ClassifierTick.h"

/// Whether the coach's own window still holds. Pure.
namespace halvo::DoNotDisturbSupervisor {

inline constexpr std::int64_t patternCheckMinIntervalMs = 180'000;  ///< a model call each; what people do changes no faster

struct Holding {
  std::int64_t untilMs = 0;
  bool operator==(const Holding&) const = default;
};
struct EndNow {
  DoNotDisturbEndReason reason = DoNotDisturbEndReason::breakTaken;
  std::optional<std::string> detail = {};  ///< the classifier's words about the break
  bool operator==(const EndNow&) const = default;
};
/// No window is in force.
struct Idle {
  bool operator==(const Idle&) const = default;
};
/// What is on the screen is to be compared with the expectation.
struct RunPatternCheck {
  bool operator==(const RunPatternCheck&) const = default;
};
using Action = std::variant<Holding, EndNow, Idle, RunPatternCheck>;

struct Moment {
  std::span<const EventLogEvent> events = {};
  std::span<const ClassifierTick> ticks = {};
  std::int64_t asOfMs = 0;
  std::optional<std::int64_t> lastPatternCheckMs = {};  ///< absent: long ago
};
/// A break ends the window before anything is asked of a model. Judgments count from the window's start to `asOfMs`, both ends included.
Action evaluate(const Moment& moment);

}  // namespace halvo::DoNotDisturbSupervisor
