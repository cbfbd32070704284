#include "AmbitudeAppKit/AgentControl/BackgroundAgents.h"

#include "AmbitudeAppKit/AgentControl/LaunchdPrint.h"
#include "CaptureShared/Foundation/Match.h"
#include "CaptureShared/Foundation/Translation.h"

namespace halvo {

namespace {

using namespace AgentServiceMigration;
using State = BackgroundAgentState;
using ActionError = BackgroundAgentActionError;

std::string wordsOf(const ActionError::Case& which) {
  const auto nameOf = [](BackgroundAgent agent) { return displayName(agent); };
  return match(
      which,
      [&](const ActionError::BundleSourceMissing& e) {
        return userMessage(ServiceAction::turnOn, nameOf(e.agent), ServiceErrorKind::damagedCopy);
      },
      [&](const ActionError::RegisterFailed& e) { return userMessage(ServiceAction::turnOn, nameOf(e.agent), e.kind); },
      [&](const ActionError::RequiresApproval& e) {
        return userMessage(ServiceAction::turnOn, nameOf(e.agent), ServiceErrorKind::notAllowed);
      },
      [&](const ActionError::UnregisterFailed& e) { return userMessage(ServiceAction::turnOff, nameOf(e.agent), e.kind); },
      [&](const ActionError::RestartFailed& e) {
        return userMessage(ServiceAction::turnOn, nameOf(e.agent), ServiceErrorKind::temporary);
      });
}

State::RunState runStateOf(const LaunchdPrint& print) {
  if (print.pid) return State::Running{*print.pid};
  if (print.lastExitCode && *print.lastExitCode != 0) return State::Failing{*print.lastExitCode};
  return State::Idle{print.lastExitCode, print.runs};
}

}  // namespace

BackgroundAgentActionError::BackgroundAgentActionError(Case which, std::string detail)
    : std::runtime_error(wordsOf(which)), case_(which), detail_(std::move(detail)) {}

BackgroundAgentState BackgroundAgents::state(BackgroundAgent agent) const {
  const auto name = label(agent);
  const auto status = deps_.services.status(name);
  std::error_code ignored;
  const auto legacyFile = deps_.legacyFolder / (name + ".plist");
  const bool hasLegacy = std::filesystem::exists(legacyFile, ignored);
  State state{.agent = agent, .launchdDisabled = deps_.services.isDisabled(name), .registration = status};
  match(
      deps_.services.print(name), [&](const ServiceManager::Failed& failed) { state.runState = State::Unknown{failed.text}; },
      [&](const ServiceManager::NotLoaded&) {
        if (status == ServiceStatus::requiresApproval)
          state.runState = State::RequiresApproval{};
        else if (hasLegacy || status == ServiceStatus::enabled || state.launchdDisabled == true)
          state.runState = State::InstalledNotLoaded{};
        else
          state.runState = State::NotInstalled{};
      },
      [&](const ServiceManager::Printed& printed) {
        const auto print = LaunchdPrint::parse(printed.text);
        state.runState = status == ServiceStatus::requiresApproval ? State::RunState(State::RequiresApproval{}) : runStateOf(print);
        state.runsFromLegacyPlist = hasLegacy && print.path == legacyFile.string();
        state.since = LaunchdPrint::field(printed.text, "since");
      });
  if (deps_.missingConfigKeys) state.missingConfigKeys = deps_.missingConfigKeys(agent);
  if (agent == BackgroundAgent::localModel) state.localModelStatus = LlamaServerStatus::read(deps_.localModelStatusFile);
  return state;
}

std::vector<BackgroundAgentState> BackgroundAgents::statuses(std::span<const BackgroundAgent> agents) const {
  std::vector<State> states;
  for (const auto agent : agents) states.push_back(state(agent));
  return states;
}

BackgroundAgents::RestartOutcome BackgroundAgents::restart(BackgroundAgent agent) const {
  const auto print = deps_.services.print(label(agent));
  if (std::holds_alternative<ServiceManager::NotLoaded>(print)) return RestartOutcome::notLoaded;
  if (const auto* failed = std::get_if<ServiceManager::Failed>(&print)) throw ActionError(ActionError::RestartFailed{agent}, failed->text);
  if (const auto failure = deps_.services.kickstart(label(agent))) throw ActionError(ActionError::RestartFailed{agent}, failure->text);
  return RestartOutcome::restarted;
}

void BackgroundAgents::stop(BackgroundAgent agent) const {
  if (const auto failure = deps_.services.bootout(label(agent)))
    throw ActionError(ActionError::UnregisterFailed{agent, errorKind(failure->domain, failure->code)}, failure->text);
}

void BackgroundAgents::remove(BackgroundAgent agent) const {
  const auto name = label(agent);
  const auto failed = [&](const ServiceManager::Failure& failure) {
    return ActionError(ActionError::UnregisterFailed{agent, errorKind(failure.domain, failure.code)}, failure.text);
  };
  if (const auto failure = deps_.services.unregister(name)) {
    const auto after = deps_.services.status(name);
    if (!after || !unregisterFailureLeavesNothingRegistered(*after)) throw failed(*failure);
  }
  if (std::holds_alternative<ServiceManager::Printed>(deps_.services.print(name)))
    if (const auto failure = deps_.services.bootout(name)) throw failed(*failure);
}

const char* describe(const BackgroundAgentState::RunState& state) {
  return match(
      state, [](const State::Running&) { return trMark("running"); },
      [](const State::Idle& idle) { return idle.lastExitCode ? trMark("idle") : trMark("waiting for its first run"); },
      [](const State::Failing&) { return trMark("failing"); }, [](const State::Unknown&) { return trMark("unknown"); },
      [](const State::NotInstalled&) { return trMark("not installed"); },
      [](const State::InstalledNotLoaded&) { return trMark("stopped"); },
      [](const State::RequiresApproval&) { return trMark("needs approval"); });
}

}  // namespace halvo
