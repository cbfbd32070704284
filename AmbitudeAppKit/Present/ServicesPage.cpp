#include "AmbitudeAppKit/Present/ServicesPage.h"

#include "AmbitudeAppKit/AgentControl/AgentServiceMigration.h"
#include "AmbitudeAppKit/AgentControl/BackgroundAgents.h"
#include "CaptureShared/Foundation/Match.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Foundation/Translation.h"

namespace halvo {

namespace {

using namespace AgentServiceMigration;
using State = BackgroundAgentState;

std::string health(const State& state, const std::string& line) {
  std::vector<std::string> parts;
  if (!state.missingConfigKeys.empty()) parts.push_back(tr("{} is not set", Text::join(state.missingConfigKeys, ", ")));
  if (state.launchdDisabled == true) parts.push_back(tr("held off by the service manager"));
  if (state.runsFromLegacyPlist) parts.push_back(tr("runs from an old installation"));
  if (const auto* unknown = std::get_if<State::Unknown>(&state.runState)) parts.push_back(unknown->text);
  const bool modelMatters =
      std::holds_alternative<State::Failing>(state.runState) || std::holds_alternative<State::Idle>(state.runState);
  if (state.localModelStatus && modelMatters) parts.push_back(state.localModelStatus->healthMessage());
  if (!line.empty()) parts.push_back(line);
  return Text::join(parts, "; ");
}

ServicesPage::Row rowOf(const State& state, const std::string& line) {
  ServicesPage::Row row{.agent = state.agent,
                        .name = displayName(state.agent),
                        .state = tr(describe(state.runState)),
                        .pid = "-",
                        .lastExit = "-",
                        .since = state.since.value_or("-"),
                        .health = health(state, line)};
  if (const auto* running = std::get_if<State::Running>(&state.runState)) row.pid = std::to_string(running->pid);
  if (const auto* failing = std::get_if<State::Failing>(&state.runState)) row.lastExit = std::to_string(failing->lastExitCode);
  if (const auto* idle = std::get_if<State::Idle>(&state.runState); idle && idle->lastExitCode)
    row.lastExit = std::to_string(*idle->lastExitCode);
  return row;
}

/// An agent that nobody can tell of counts as at work: no banner says of it what isn't known.
Liveness liveness(const State& state) {
  if (std::holds_alternative<State::Unknown>(state.runState)) return {};
  const bool isNotLoaded =
      std::holds_alternative<State::InstalledNotLoaded>(state.runState) || std::holds_alternative<State::NotInstalled>(state.runState);
  return {.status = state.registration.value_or(ServiceStatus::notRegistered),
          .loaded = !isNotLoaded,
          .hasPid = std::holds_alternative<State::Running>(state.runState)};
}

std::string words(ApprovalBanner banner) {
  switch (banner) {
    case ApprovalBanner::hidden: return {};
    case ApprovalBanner::captureOff: return tr("Capture waits for your approval: nothing is recorded until then.");
    case ApprovalBanner::coachOff: return tr("The coach waits for your approval: Lark says nothing until then.");
    case ApprovalBanner::partlyOff: return tr("Some of Halvo's agents wait for your approval.");
  }
  return {};
}

std::string words(StoppedBanner banner) {
  switch (banner) {
    case StoppedBanner::hidden: return {};
    case StoppedBanner::captureStopped: return tr("Capture is installed and does not run: nothing is recorded.");
    case StoppedBanner::coachStopped: return tr("The coach is installed and does not run: Lark says nothing.");
  }
  return {};
}

std::string words(const OffCard& card) {
  return match(
      card,
      [](const SomeOff& off) {
        std::vector<std::string> names;
        for (const auto agent : off.agents) names.push_back(displayName(agent));
        return tr("Not on: {}.", Text::join(names, ", "));
      },
      [](const OffCardState& state) {
        return state == OffCardState::allOff ? tr("No agent is on: nothing is recorded or judged, and Lark says nothing.") : std::string();
      });
}

}  // namespace

std::array<std::string, 6> ServicesPage::headers() {
  return {tr("Agent"), tr("State"), tr("Process"), tr("Last exit"), tr("Since"), tr("Health")};
}

ServicesPage ServicesPage::of(std::span<const BackgroundAgentState> states, const std::map<BackgroundAgent, std::string>& lines) {
  ServicesPage page;
  std::vector<std::pair<BackgroundAgent, ServiceStatus>> known;
  Liveness supervisor, coach;
  for (const auto& state : states) {
    const auto line = lines.find(state.agent);
    page.rows.push_back(rowOf(state, line == lines.end() ? std::string() : line->second));
    if (state.registration) known.emplace_back(state.agent, *state.registration);
    if (state.agent == BackgroundAgent::captureSupervisor) supervisor = liveness(state);
    if (state.agent == BackgroundAgent::coachDriver) coach = liveness(state);
  }
  // "None" needs to know of all of them.
  const auto off = known.size() == states.size() ? offCard(known) : OffCard(OffCardState::hidden);
  for (const auto& banner : {words(approvalBanner(known)), words(stoppedBanner(supervisor, coach)), words(off)})
    if (!banner.empty()) page.banners.push_back(banner);
  return page;
}

}  // namespace halvo
