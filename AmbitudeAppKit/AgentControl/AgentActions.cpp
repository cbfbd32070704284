#include "AmbitudeAppKit/AgentControl/AgentActions.h"

#include <system_error>

#include "AmbitudeAppKit/AgentControl/AgentUnitFiles.h"
#include "AmbitudeAppKit/AgentControl/LegacyLaunchAgentRecovery.h"
#include "CaptureShared/Foundation/ExecutablePath.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Foundation/Translation.h"
#include "CaptureShared/Signals/SignalsNotes.h"

namespace halvo {

namespace fs = std::filesystem;
using namespace AgentServiceMigration;

namespace {

using Told = AgentActions::Told;

Told failed(const BackgroundAgentActionError& error) { return {.words = error.what(), .detail = error.detail(), .isDone = false}; }

/// Some lines name their agent themselves.
Told unsettled(BackgroundAgent agent, const std::string& line, std::string detail) {
  const bool isNamed = line.find(displayName(agent)) != std::string::npos;
  return {.agent = isNamed ? std::nullopt : std::optional(agent), .words = line, .detail = std::move(detail), .isDone = false};
}

bool isRegistered(const Job& job) {
  return job.serviceStatus == ServiceStatus::enabled || job.serviceStatus == ServiceStatus::requiresApproval;
}

void forEach(AgentActions::Agents agents, const AgentActions::Tell& tell, const std::function<std::string(BackgroundAgent)>& act) {
  for (const auto agent : agents) {
    try {
      tell({.agent = agent, .words = act(agent)});
    } catch (const BackgroundAgentActionError& error) {
      tell(failed(error));
    }
  }
}

}  // namespace

AgentActions::AgentActions(Dependencies dependencies) : deps_(std::move(dependencies)), agents_(deps_.control) {}

std::vector<BackgroundAgentState> AgentActions::states() const {
  std::vector<BackgroundAgentState> states;
  for (const auto& agent : backgroundAgents) states.push_back(agents_.state(agent.agent));
  return states;
}

std::map<BackgroundAgent, std::string> AgentActions::lines() const {
  auto lines = lines_.get();
  lines.merge(restartLines_.get());
  return lines;
}

std::optional<std::string> AgentActions::refusal() const {
  if (deps_.allowed == Precondition::ok) return std::nullopt;
  return tr("this copy ({}) is not the installed one ({}), so it registers nothing", deps_.control.programFolder.string(),
            deps_.installedFolder.string());
}

void AgentActions::install(Agents agents, const Tell& tell) {
  const auto tellOfAll = [&](const Told& told) {
    lines_.with([&](auto& lines) {
      for (const auto agent : agents)
        if (!told.isDone) lines[agent] = told.words;
    });
    tell(told);
  };
  if (const auto why = refusal()) return tellOfAll({.words = *why, .isDone = false});
  if (!recoverSettings(tellOfAll, tr("nothing was installed"))) return;
  for (const auto agent : agents) {
    const auto told = installOne(agent);
    lines_.with([&](auto& lines) {
      if (told.isDone)
        lines.erase(agent);
      else
        lines[agent] = told.words;
    });
    tell(told);
  }
}

void AgentActions::installAfterSetup(const Tell& tell) {
  std::vector<BackgroundAgent> all, old;
  for (const auto& agent : backgroundAgents) all.push_back(agent.agent);
  const auto before = running();
  if (before.empty()) return install(all, tell);
  const auto unread = deps_.control.services.reload();
  install(all, tell);
  for (const auto& [agent, pid] : running())
    if (const auto ran = before.find(agent); ran != before.end() && ran->second == pid) old.push_back(agent);
  restart(old, tell);
  if (!unread) return;
  const Told told{.words = tr("the service manager did not read the settings again"), .detail = unread->text, .isDone = false};
  restartLines_.with([&](auto& lines) {
    for (const auto agent : old) lines.try_emplace(agent, told.words);
  });
  tell(told);
}

/// The agents that run, with their processes.
std::map<BackgroundAgent, std::int32_t> AgentActions::running() const {
  std::map<BackgroundAgent, std::int32_t> pids;
  for (const auto& state : states())
    if (const auto* runs = std::get_if<BackgroundAgentState::Running>(&state.runState)) pids[state.agent] = runs->pid;
  return pids;
}

/// Settings that only an old installation's files hold; they are taken before those go.
bool AgentActions::recoverSettings(const Tell& tell, const std::string& otherwise) const {
  try {
    const auto recovery = LegacyLaunchAgentRecovery::plan(deps_.control.legacyFolder, AgentConfig::load(deps_.configFile).settings);
    if (!recovery.settings.empty()) AgentConfig::setEnvSettings(recovery.settings, deps_.configFile);
    if (!recovery.migratedKeys.empty()) tell({.words = tr("taken from the old installation: {}", Text::join(recovery.migratedKeys, ", "))});
    if (!recovery.conflictingKeys.empty())
      tell({.words = tr("set differently in the old installation, left as configured: {}", Text::join(recovery.conflictingKeys, ", ")),
            .isDone = false});
    for (const auto& error : recovery.readErrors) tell({.words = error, .isDone = false});
    return true;
  } catch (const std::exception& error) {
    tell({.words = otherwise + ": " + error.what(), .isDone = false});
    return false;
  }
}

AgentServiceMigrationRunner AgentActions::runner(LogSink log) const {
  return AgentServiceMigrationRunner({.services = deps_.control.services,
                                      .programFolder = deps_.control.programFolder,
                                      .legacyFolder = deps_.control.legacyFolder,
                                      .markerFolder = deps_.markerFolder,
                                      .removeFile = [](const fs::path& file) { fs::remove(file); },
                                      .clock = deps_.clock,
                                      .log = std::move(log)});
}

AgentActions::Told AgentActions::installOne(BackgroundAgent agent) {
  if (!ExecutablePath::isExecutableFile(deps_.control.programFolder / facts(agent).program))
    return failed(BackgroundAgentActionError(BackgroundAgentActionError::BundleSourceMissing{agent}));
  std::vector<std::string> log;
  auto migration = runner([&log](const std::string& line) { log.push_back(line); });
  try {
    // What stands already may be an older copy's. It is renewed with the same care.
    if (isRegistered(migration.observe(agent)) && !hasCurrentUnits(agent)) migration.mark(agent);
  } catch (const std::system_error& error) {
    return {.agent = agent, .words = tr("not renewed: {}", error.what()), .isDone = false};
  }
  const auto outcome = migration.run(deps_.allowed, std::span(&agent, 1)).front();
  if (!outcome.isSettled) return unsettled(agent, outcome.line, Text::join(log, "; "));
  if (agent == BackgroundAgent::captureSupervisor) noteCaptureIs(false);
  return {.agent = agent, .words = tr("installed")};
}

/// True when what lies with the manager is what this copy would write.
bool AgentActions::hasCurrentUnits(BackgroundAgent agent) const {
  try {
    for (const auto& file : AgentUnitFiles::of(agent, deps_.control.programFolder))
      if (readFile(deps_.unitFolder / file.name) != file.text) return false;
    return true;
  } catch (const std::system_error&) {
    return false;
  }
}

void AgentActions::start(const Tell& tell) {
  if (refusal()) return;
  std::vector<BackgroundAgent> due;
  for (const auto& agent : backgroundAgents) {
    const auto job = runner().observe(agent.agent);
    // Registered and not loaded is what the person stopped.
    if (job.legacyPlistPresent || job.interrupted || (isRegistered(job) && job.loaded == true)) due.push_back(agent.agent);
  }
  if (!due.empty()) install(due, tell);
}

void AgentActions::restart(Agents agents, const Tell& tell) {
  forEach(agents, tell, [this](BackgroundAgent agent) {
    try {
      const bool isRestarted = agents_.restart(agent) == BackgroundAgents::RestartOutcome::restarted;
      restartLines_.with([&](auto& lines) { lines.erase(agent); });
      return isRestarted ? tr("restarted") : tr("not running: install starts it");
    } catch (const BackgroundAgentActionError& error) {
      restartLines_.with([&](auto& lines) { lines[agent] = error.what(); });
      throw;
    }
  });
}

void AgentActions::stop(Agents agents, const Tell& tell) {
  forEach(agents, tell, [this](BackgroundAgent agent) {
    agents_.stop(agent);
    restartLines_.with([&](auto& lines) { lines.erase(agent); });
    return tr("stopped until the next login");
  });
}

void AgentActions::remove(Agents agents, const Tell& tell) {
  // What could not be read of them is no failure of the removal.
  const auto note = [&](Told told) {
    told.isDone = true;
    tell(told);
  };
  const bool mayTakeFiles = legacyFiles(agents).empty() || recoverSettings(note, tr("the old installation's settings can't be kept"));
  if (!mayTakeFiles) tell({.words = tr("the files of the old installation stay, and the next start goes on with them"), .isDone = false});
  forEach(agents, tell, [&](BackgroundAgent agent) {
    agents_.remove(agent);
    // Else the next start would go on with a move that nobody wants any more.
    std::error_code ignored;
    fs::remove(deps_.markerFolder / label(agent), ignored);
    if (agent == BackgroundAgent::captureSupervisor) noteCaptureIs(true);
    for (auto* kept : {&lines_, &restartLines_}) kept->with([&](auto& lines) { lines.erase(agent); });
    if (mayTakeFiles) removeLegacyFile(agent);
    return tr("removed");
  });
}

std::vector<fs::path> AgentActions::legacyFiles(Agents agents) const {
  std::vector<fs::path> files;
  for (const auto agent : agents) {
    const auto file = deps_.control.legacyFolder / (label(agent) + ".plist");
    std::error_code ignored;
    if (fs::exists(fs::symlink_status(file, ignored))) files.push_back(file);
  }
  return files;
}

void AgentActions::removeLegacyFile(BackgroundAgent agent) const {
  std::error_code error;
  for (const auto& file : legacyFiles(std::span(&agent, 1)))
    if (fs::remove(file, error); error)
      throw BackgroundAgentActionError(BackgroundAgentActionError::UnregisterFailed{agent, errorKind("NSPOSIXErrorDomain", error.value())},
                                       file.string() + ": " + error.message());
}

/// For whoever wonders why nothing is recorded. Without the note only the words differ, so a failure is none of the action's.
void AgentActions::noteCaptureIs(bool isRemoved) const {
  const auto root = deps_.dataRoot ? deps_.dataRoot() : std::nullopt;
  if (!root) return;
  const auto note = CaptureRemovalIntentStore::url(*root);
  try {
    if (isRemoved)
      CaptureRemovalIntentStore::write({.removedAtMs = deps_.clock.nowMs()}, note);
    else
      fs::remove(note);
  } catch (const std::system_error&) {
  }
}

}  // namespace halvo
