#include "app/ServiceCommands.h"

#include <sys/stat.h>
#include <sys/statvfs.h>

#include <fmt/format.h>

#include <filesystem>
#include <functional>
#include <system_error>
#include <vector>

#include "AmbitudeAppKit/AgentControl/AgentServiceMigrationRunner.h"
#include "AmbitudeAppKit/AgentControl/AgentUnitFiles.h"
#include "AmbitudeAppKit/AgentControl/BackgroundAgents.h"
#include "AmbitudeAppKit/AgentControl/LegacyLaunchAgentRecovery.h"
#include "AmbitudeAppKit/Live/TerminalText.h"
#include "AmbitudeCore/Backends/Factory/ModelBackendFactory.h"
#include "CaptureShared/DataRoot/AgentLogging.h"
#include "CaptureShared/DataRoot/AgentProcess.h"
#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/Foundation/ExecutablePath.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/Spawn.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Foundation/UserFolders.h"
#include "Platform/Linux/SystemdServices.h"
#include "app/CommandOutput.h"

namespace halvo::ServiceCommands {

namespace {

namespace fs = std::filesystem;
using CommandOutput::fail;
using CommandOutput::print;

/// This account's service manager and folders.
struct Place {
  Environment environment = processEnvironment();
  fs::path programs = ExecutablePath::siblingDirectory(ExecutablePath::resolveSelf());
  fs::path unitFolder = configFolder() / "systemd/user";
  fs::path legacyFolder = UserFolders::home(environment) / "Library/LaunchAgents";
  SystemdServices services{
      {.unitFolder = unitFolder, .unitFiles = [this](const std::string& label) { return AgentUnitFiles::ofLabel(label, programs); }}};
  BackgroundAgents agents{{.services = services,
                           .programFolder = programs,
                           .legacyFolder = legacyFolder,
                           .localModelStatusFile = LlamaServerStatus::url(environment),
                           .missingConfigKeys = [this](BackgroundAgent agent) { return missingKeys(agent); }}};

  Place() = default;
  Place(const Place&) = delete;
  Place& operator=(const Place&) = delete;

  fs::path configFolder() const {
    const auto named = value(environment, "XDG_CONFIG_HOME");
    return named && named->starts_with('/') ? fs::path(*named) : UserFolders::home(environment) / ".config";
  }
  std::vector<std::string> missingKeys(BackgroundAgent agent) const {
    if (agent != BackgroundAgent::coachDriver) return {};
    return AgentConfig::missingKeys(ModelBackendFactory::coachDriverRequiredConfigKeys(environment), {}, environment);
  }
};

/// The agents meant; none for a name that is no agent's.
std::vector<BackgroundAgent> named(const AgentName& name) {
  std::vector<BackgroundAgent> agents;
  for (const auto& agent : backgroundAgents)
    if (!name || *name == agent.shortName || *name == agent.program || *name == label(agent.agent)) agents.push_back(agent.agent);
  return agents;
}

int unknownAgent(const std::string& name) {
  std::vector<std::string> names;
  for (const auto& agent : backgroundAgents) names.emplace_back(agent.shortName);
  return fail("\"" + TerminalText::oneLine(name) + "\" is no agent: there are " + Text::join(names, ", "));
}

int forEach(const AgentName& name, const std::function<std::string(const Place&, BackgroundAgent)>& act) {
  const auto agents = named(name);
  if (agents.empty()) return unknownAgent(*name);
  const Place place;
  int status = 0;
  for (const auto agent : agents) {
    try {
      print(fmt::format("{:<16}{}", facts(agent).name, act(place, agent)));
    } catch (const BackgroundAgentActionError& error) {
      status = fail(error.what() + (error.detail().empty() ? "" : "\n  " + TerminalText::oneLine(error.detail())));
    }
  }
  return status;
}

std::string healthLine(const BackgroundAgentState& state) {
  std::vector<std::string> parts;
  if (!state.missingConfigKeys.empty()) parts.push_back(Text::join(state.missingConfigKeys, ", ") + " is not set");
  if (state.launchdDisabled == true) parts.emplace_back("held off by the service manager");
  if (state.runsFromLegacyPlist) parts.emplace_back("runs from an old installation");
  if (const auto* unknown = std::get_if<BackgroundAgentState::Unknown>(&state.runState)) parts.push_back(unknown->text);
  const bool modelMatters = std::holds_alternative<BackgroundAgentState::Failing>(state.runState) ||
                            std::holds_alternative<BackgroundAgentState::Idle>(state.runState);
  if (state.localModelStatus && modelMatters) parts.push_back(state.localModelStatus->healthMessage());
  return TerminalText::oneLine(Text::join(parts, "; "));
}

void printRow(const BackgroundAgentState& state) {
  const auto number = [](const auto& value) { return value ? std::to_string(*value) : std::string("-"); };
  std::optional<std::int32_t> pid, exitCode;
  if (const auto* running = std::get_if<BackgroundAgentState::Running>(&state.runState)) pid = running->pid;
  if (const auto* idle = std::get_if<BackgroundAgentState::Idle>(&state.runState)) exitCode = idle->lastExitCode;
  if (const auto* failing = std::get_if<BackgroundAgentState::Failing>(&state.runState)) exitCode = failing->lastExitCode;
  const auto line = fmt::format("{:<15} {:<25} {:>8} {:>9}  {:<28}  {}", facts(state.agent).name, describe(state.runState), number(pid),
                                number(exitCode), state.since.value_or("-"), healthLine(state));
  print(line.substr(0, line.find_last_not_of(' ') + 1));
}

/// The package's own folder counts as signed when nobody but its owner can change what is in it.
AgentServiceMigration::Bundle bundleAt(const fs::path& programs) {
  AgentServiceMigration::Bundle bundle{.bundlePath = programs.string(), .installedPath = HALVO_INSTALL_DIR};
  struct stat folder {};
  struct statvfs volume {};
  if (::stat(programs.c_str(), &folder) == 0 && folder.st_uid == 0 && !(folder.st_mode & (S_IWGRP | S_IWOTH)))
    bundle.teamIdentifier = std::string(AgentServiceMigration::developerTeamID);
  bundle.isOnReadOnlyVolume = ::statvfs(programs.c_str(), &volume) == 0 && (volume.f_flag & ST_RDONLY);
#ifndef NDEBUG
  bundle.isDebugBuild = true;
#endif
  return bundle;
}

/// Settings that only an old installation's files hold; they are taken before those go.
void recoverLegacySettings(const Place& place) {
  const auto config = DataPaths::configURL();
  const auto recovery = LegacyLaunchAgentRecovery::plan(place.legacyFolder, AgentConfig::load(config).settings);
  if (!recovery.settings.empty()) AgentConfig::setEnvSettings(recovery.settings, config);
  if (!recovery.migratedKeys.empty()) print("taken from the old installation: " + Text::join(recovery.migratedKeys, ", "));
  if (!recovery.conflictingKeys.empty())
    fail("set differently in the old installation, left as configured: " + Text::join(recovery.conflictingKeys, ", "));
  for (const auto& error : recovery.readErrors) fail(error);
}

/// True when what lies with the manager is what this copy would write.
bool hasCurrentUnits(const Place& place, BackgroundAgent agent) {
  try {
    for (const auto& file : AgentUnitFiles::of(agent, place.programs))
      if (readFile(place.unitFolder / file.name) != file.text) return false;
    return true;
  } catch (const std::system_error&) {
    return false;
  }
}

std::vector<std::string> lastLines(const fs::path& log, std::size_t count) {
  constexpr std::uint64_t window = 64 * 1024;
  const auto file = FileHandle::openForRead(log);
  const auto size = static_cast<std::uint64_t>(FileIdentity::of(file).size);
  const auto text = file.readAt(size > window ? size - window : 0, window);
  auto pieces = Text::split(text, '\n');
  if (!pieces.empty() && pieces.back().empty()) pieces.pop_back();
  if (size > window && !pieces.empty()) pieces.erase(pieces.begin());  // begins in the middle
  if (pieces.size() > count) pieces.erase(pieces.begin(), pieces.end() - static_cast<std::ptrdiff_t>(count));
  return {pieces.begin(), pieces.end()};
}

}  // namespace

int status() {
  const Place place;
  print(fmt::format("{:<15} {:<25} {:>8} {:>9}  {:<28}  {}", "agent", "state", "pid", "last exit", "since", "health"));
  for (const auto agent : named({})) printRow(place.agents.state(agent));
  return 0;
}

int install(const AgentName& name, bool fromHere) {
  using namespace AgentServiceMigration;
  const auto agents = named(name);
  if (agents.empty()) return unknownAgent(*name);
  Place place;
  const auto allowed = fromHere ? Precondition::ok : precondition(bundleAt(place.programs));
  if (allowed != Precondition::ok)
    return fail(fmt::format("this copy ({}) is not the installed one ({}), so it registers nothing; --from-here makes it",
                            place.programs.string(), HALVO_INSTALL_DIR));
  try {
    recoverLegacySettings(place);
  } catch (const std::exception& error) {
    return fail(std::string("nothing was installed: ") + error.what());
  }
  AgentServiceMigrationRunner runner({.services = place.services,
                                      .programFolder = place.programs,
                                      .legacyFolder = place.legacyFolder,
                                      .markerFolder = UserFolders::supportDir(place.environment) / "service-migration",
                                      .removeFile = [](const fs::path& file) { fs::remove(file); },
                                      .log = [](const std::string& line) { fail("  " + TerminalText::oneLine(line)); }});
  int status = 0;
  for (const auto agent : agents) {
    if (!ExecutablePath::isExecutableFile(place.programs / facts(agent).program)) {
      status = fail(BackgroundAgentActionError(BackgroundAgentActionError::BundleSourceMissing{agent}).what());
      continue;
    }
    const auto outcome = runner.run(allowed, std::span(&agent, 1)).front();
    if (!outcome.isSettled) {
      status = fail(fmt::format("{:<16}{}", facts(agent).name, outcome.line));
      continue;
    }
    try {
      if (!hasCurrentUnits(place, agent)) place.agents.install(agent);
      print(fmt::format("{:<16}{}", facts(agent).name, "installed"));
    } catch (const BackgroundAgentActionError& error) {
      status = fail(error.what());
    }
  }
  return status;
}

int restart(const AgentName& name) {
  return forEach(name, [](const Place& place, BackgroundAgent agent) {
    const bool isRestarted = place.agents.restart(agent) == BackgroundAgents::RestartOutcome::restarted;
    return isRestarted ? "restarted" : "not running: halvo services install starts it";
  });
}

int stop(const AgentName& name) {
  return forEach(name, [](const Place& place, BackgroundAgent agent) {
    place.agents.stop(agent);
    return "stopped until the next login";
  });
}

int remove(const AgentName& name) {
  return forEach(name, [](const Place& place, BackgroundAgent agent) {
    place.agents.remove(agent);
    return "removed";
  });
}

int begin() {
  Place place;
  std::vector<std::string> words{"--user", "import-environment"};
  for (const char* key : {"DISPLAY", "XAUTHORITY"})
    if (place.environment.contains(key)) words.emplace_back(key);
  constexpr double patienceSec = 10;
  try {
    if (words.size() > 2) Spawn::capture("systemctl", words, {}, patienceSec);
  } catch (const std::system_error& error) {
    return fail(error.what());
  }
  int status = 0;
  for (const auto agent : named({})) {
    const auto state = place.agents.state(agent);
    const bool waits = std::holds_alternative<BackgroundAgentState::InstalledNotLoaded>(state.runState) && state.launchdDisabled == false;
    if (!waits || facts(agent).isScheduled) continue;  // the nightly job has its timer
    if (const auto failure = place.services.kickstart(label(agent))) status = fail(TerminalText::oneLine(failure->text));
  }
  return status;
}

int logs(const AgentName& name) {
  constexpr std::size_t count = 40;
  const auto agents = named(name);
  if (agents.empty()) return unknownAgent(*name);
  for (const auto agent : agents) {
    const auto log = AgentLogging::logURL(AgentProcess::logSubdirectory, std::string(facts(agent).program));
    print(log.string());
    try {
      for (const auto& line : lastLines(log, count)) print("  " + TerminalText::oneLine(line));
    } catch (const std::system_error& error) {
      print("  " + error.code().message());
    }
  }
  return 0;
}

}  // namespace halvo::ServiceCommands
