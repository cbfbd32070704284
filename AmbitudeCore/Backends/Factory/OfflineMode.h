#pragma once

#include <set>
#include <string>
#include <string_view>

#include "CaptureShared/Foundation/Environment.h"

/// The promise that no text leaves this machine. It stands above every other choice of a backend.
namespace halvo::OfflineMode {

inline constexpr std::string_view envVar = "AMBITCAP_OFFLINE_MODE";

/// True when the value is exactly "1".
bool isEnabled(const Environment& environment);
/// True when whoever started the program decided it, and not `config.json`: then changing the file changes nothing.
bool isPinnedFromOutside(const Environment& environment, const std::set<std::string, std::less<>>& configSourcedEnvKeys);

}  // namespace halvo::OfflineMode
