#pragma once

#include <string_view>

#include "CaptureShared/Foundation/Environment.h"

/// Which generation of the coach runs: armed is the live one.
namespace halvo::Layer3Flag {

inline constexpr std::string_view envVar = "AMBITCAP_LAYER3";
/// True only for exactly "1".
bool isArmed(const Environment& environment);

}  // namespace halvo::Layer3Flag
