#pragma once

#include <optional>
#include <span>
#include <string>

#include "CaptureShared/Records/CoachCorrection.h"
#include "CaptureShared/Records/StandingMemory.h"

/// What the user has taught the system, as the gate and the coach read it.
namespace halvo::GateStandingNotes {

/// One line for each fact and lesson, then one for each correction that no nightly pass has folded in yet and that has this scope or none,
/// oldest first; absent when there are none. `corrections` are those in force.
std::optional<std::string> render(const std::optional<StandingMemory>& memory, std::span<const CoachCorrection> corrections,
                                  CoachCorrection::Scope scope);

}  // namespace halvo::GateStandingNotes
