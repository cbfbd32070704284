#pragma once

#include <cstdint>
#include <filesystem>

#include "AmbitudeAppKit/AgentControl/SidebarHealthStrip.h"
#include "CaptureShared/Foundation/Environment.h"

/// How the programs in the background do, read from what they wrote.
namespace halvo::Health {

/// What matters most about the present data root. Reads a few small files; never throws.
SidebarHealthStrip::State look(const Environment& environment, std::int64_t nowMs);

/// When the recorder last showed life, in milliseconds since the epoch; absent: never. While the session is locked it records nothing on
/// purpose, and then the sampler, which says so, stands in for it.
std::optional<std::int64_t> captureActivityMs(const std::filesystem::path& root);

}  // namespace halvo::Health
