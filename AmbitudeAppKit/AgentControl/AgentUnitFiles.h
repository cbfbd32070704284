#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "AmbitudeAppKit/AgentControl/BackgroundAgent.h"
#include "CaptureShared/Foundation/Environment.h"
#include "Platform/Services/UnitFile.h"

/// The units that keep the agents alive. Pure, but for the looks at what is there.
namespace halvo::AgentUnitFiles {

/// "<label>.service", and "<label>.timer" for the nightly job, with the programs in `programFolder`.
std::vector<UnitFile> of(BackgroundAgent agent, const std::filesystem::path& programFolder);
/// The same for a label; none for one that is no agent's.
std::vector<UnitFile> ofLabel(const std::string& label, const std::filesystem::path& programFolder);

/// Where this account's units lie.
std::filesystem::path folder(const Environment& environment);
/// Where property lists of an old installation lie.
std::filesystem::path legacyFolder(const Environment& environment);
/// Whether the agent's unit, or its property list, is in these folders: the person wants it to run. Asks no service manager.
bool isInstalled(BackgroundAgent agent, const Environment& environment);

}  // namespace halvo::AgentUnitFiles
