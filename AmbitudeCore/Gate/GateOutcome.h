#pragma once

#include <string>
#include <variant>

namespace halvo {

/// What the gate model answered.
struct GateDecision {
  std::string summaryForCoach = {};  ///< the only thing the coach learns of the moment
  bool shouldCheckIn = false;        ///< the only thing that can start an unprompted turn
  bool operator==(const GateDecision&) const = default;
};

/// A decision, or why there is none. A failure is never read as a yes.
struct GateDecided {
  GateDecision decision = {};
  bool operator==(const GateDecided&) const = default;
};
struct GateFailed {
  std::string reason = {};
  bool operator==(const GateFailed&) const = default;
};
using GateOutcome = std::variant<GateDecided, GateFailed>;

}  // namespace halvo
