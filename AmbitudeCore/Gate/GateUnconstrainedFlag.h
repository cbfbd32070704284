#pragma once

#include <string_view>

#include "CaptureShared/Foundation/Environment.h"

/// Whether the gate first asks without a response schema. On unless it is switched off.
namespace halvo::GateUnconstrainedFlag {

inline constexpr std::string_view envVar = "AMBITCAP_GATE_UNCONSTRAINED";
/// False only for "0", "false" and "no", blanks around them and case aside.
bool isArmed(const Environment& environment);

}  // namespace halvo::GateUnconstrainedFlag
