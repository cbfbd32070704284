#pragma once

#include <optional>
#include <string>

#include "AmbitudeCore/Gate/CoachGateTimeline.h"

/// The one text the gate model sees: rules, what the user taught, the timeline, the clock and the question. Stable text comes first and the
/// changing clock last, so that the server can reuse the cached prefix between calls.
namespace halvo::CoachGateMessage {

struct Contents {
  CoachGateTimeline::Scene scene = {};
  bool lowEffort = false;
  std::optional<std::string> standingNotes = {};     ///< from `GateStandingNotes::render`
  std::optional<std::string> userInstructions = {};  ///< from `UserStandingInstructionsRendering::forGate`
  std::optional<std::string> medsContext = {};       ///< the line of the medication trigger
};

std::string build(const Contents& contents);

}  // namespace halvo::CoachGateMessage
