#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "AmbitudeAppKit/AgentControl/BackgroundAgent.h"
#include "Platform/Services/UnitFile.h"

/// The units that keep the agents alive. Pure.
namespace halvo::AgentUnitFiles {

/// "<label>.service", and "<label>.timer" for the nightly job, with the programs in `programFolder`.
std::vector<UnitFile> of(BackgroundAgent agent, const std::filesystem::path& programFolder);
/// The same for a label; none for one that is no agent's.
std::vector<UnitFile> ofLabel(const std::string& label, const std::filesystem::path& programFolder);

}  // namespace halvo::AgentUnitFiles
