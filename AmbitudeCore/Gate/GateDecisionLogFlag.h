#pragma once

#include <string_view>

#include "CaptureShared/Foundation/Environment.h"

/// Whether the gate's decisions are kept. Off unless the key is exactly "1".
namespace halvo::GateDecisionLogFlag {

inline constexpr std::string_view envVar = "AMBITCAP_GATE_LOG";
bool isArmed(const Environment& environment);

}  // namespace halvo::GateDecisionLogFlag
