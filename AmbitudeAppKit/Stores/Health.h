#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <span>
#include <string>

#include "AmbitudeAppKit/AgentControl/BackgroundAgentState.h"
#include "AmbitudeAppKit/AgentControl/SidebarHealthStrip.h"
#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Foundation/Environment.h"
#include "CaptureShared/Recording/Supervision/RecordingControls.h"

/// How the programs in the background do, read from what they wrote.
namespace halvo::Health {

/// What matters most about the present data root. An agent that is not installed and does not work is told as such. Reads a few small
/// files; never throws.
SidebarHealthStrip::State look(const Environment& environment, std::int64_t nowMs, const Calendar& calendar = Calendar::local());

/// What the files of the data root `root` say against agents that run: a process that is there may record or write nothing, by the
/// person's own wish too. Never throws.
std::map<BackgroundAgent, std::string> complaints(std::span<const BackgroundAgentState> states, const std::filesystem::path& root,
                                                  const Environment& environment, std::int64_t nowMs,
                                                  const Calendar& calendar = Calendar::local());
/// The same of the present data root; while there is none, that is what is said.
std::map<BackgroundAgent, std::string> complaints(std::span<const BackgroundAgentState> states, const Environment& environment,
                                                  std::int64_t nowMs);

/// When the recorder last showed life, in milliseconds since the epoch; absent: never. While the session is locked it records nothing on
/// purpose, and then the sampler, which says so, stands in for it.
std::optional<std::int64_t> captureActivityMs(const std::filesystem::path& root);

/// When the recorder was last told anything, or its pause was over: a pause that is just over is no silence.
std::optional<std::int64_t> controlledAtMs(const std::filesystem::path& root, const RecordingControls& controls);

}  // namespace halvo::Health
