#include "app/ServiceCommands.h"

#include <fmt/format.h>

#include <array>
#include <functional>
#include <system_error>
#include <vector>

#include "AmbitudeAppKit/AgentControl/AgentLog.h"
#include "AmbitudeAppKit/Live/TerminalText.h"
#include "AmbitudeAppKit/Present/ServicesPage.h"
#include "AmbitudeAppKit/Stores/Health.h"
#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/Spawn.h"
#include "CaptureShared/Foundation/Text.h"
#include "app/AgentPlace.h"
#include "app/CommandOutput.h"

namespace halvo::ServiceCommands {

namespace {

using CommandOutput::fail;
using CommandOutput::print;

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

int say(const AgentActions::Told& told) {
  auto line = told.agent ? fmt::format("{:<16}{}", facts(*told.agent).name, told.words) : told.words;
  if (!told.detail.empty()) line += "\n  " + TerminalText::oneLine(told.detail);
  if (!told.isDone) return fail(line);
  print(line);
  return 0;
}

using Agents = AgentActions::Agents;
using Tell = AgentActions::Tell;

int onAgents(const AgentName& name, const std::function<void(AgentActions&, Agents, const Tell&)>& act) {
  const auto agents = named(name);
  if (agents.empty()) return unknownAgent(*name);
  AgentPlace place;
  int status = 0;
  act(place.actions(), agents, [&status](const AgentActions::Told& told) { status |= say(told); });
  return status;
}

int installing(bool fromHere, const std::function<void(AgentActions&, const Tell&)>& act) {
  AgentPlace place(fromHere ? AgentPlace::Copy::anywhere : AgentPlace::Copy::installed);
  int status = 0;
  act(place.actions(), [&status](const AgentActions::Told& told) { status |= say(told); });
  return place.actions().refusal() ? fail("--from-here makes this copy register") : status;
}

template <class Cells>
void printRow(const Cells& cells) {
  const auto line = fmt::format("{:<15} {:<25} {:>8} {:>9}  {:<28}  {}", cells[0], cells[1], cells[2], cells[3], cells[4], cells[5]);
  print(line.substr(0, line.find_last_not_of(' ') + 1));
}

}  // namespace

int status() {
  AgentPlace place;
  const auto states = place.actions().states();
  const auto page = ServicesPage::of(states, Health::complaints(states, place.environment(), Clock::system().nowMs()));
  printRow(ServicesPage::headers());
  for (const auto& row : page.rows)
    printRow(std::array{row.name, row.state, row.pid, row.lastExit, row.since, TerminalText::oneLine(row.health)});
  for (const auto& banner : page.banners) print(banner);
  return 0;
}

int install(const AgentName& name, bool fromHere) {
  const auto agents = named(name);
  if (agents.empty()) return unknownAgent(*name);
  return installing(fromHere, [&](AgentActions& actions, const Tell& tell) { actions.install(agents, tell); });
}

int installAfterSetup(bool fromHere) {
  return installing(fromHere, [](AgentActions& actions, const Tell& tell) { actions.installAfterSetup(tell); });
}

int restart(const AgentName& name) {
  return onAgents(name, [](AgentActions& actions, Agents agents, const Tell& tell) { actions.restart(agents, tell); });
}

int stop(const AgentName& name) {
  return onAgents(name, [](AgentActions& actions, Agents agents, const Tell& tell) { actions.stop(agents, tell); });
}

int remove(const AgentName& name) {
  return onAgents(name, [](AgentActions& actions, Agents agents, const Tell& tell) { actions.remove(agents, tell); });
}

std::vector<std::string> legacyFiles() {
  AgentPlace place;
  const auto files = place.actions().legacyFiles(named({}));
  return {files.begin(), files.end()};
}

int begin() {
  AgentPlace place;
  std::vector<std::string> words{"--user", "import-environment"};
  for (const char* key : {"DISPLAY", "XAUTHORITY"})
    if (place.environment().contains(key)) words.emplace_back(key);
  constexpr double patienceSec = 10;
  try {
    if (words.size() > 2) Spawn::capture("systemctl", words, {}, patienceSec);
  } catch (const std::system_error& error) {
    return fail(error.what());
  }
  int status = 0;
  for (const auto& state : place.actions().states()) {
    const bool waits = std::holds_alternative<BackgroundAgentState::InstalledNotLoaded>(state.runState) && state.launchdDisabled == false;
    if (!waits || facts(state.agent).isScheduled) continue;  // the nightly job has its timer
    if (const auto failure = place.services().kickstart(label(state.agent))) status = fail(TerminalText::oneLine(failure->text));
  }
  return status;
}

int logs(const AgentName& name) {
  const auto agents = named(name);
  if (agents.empty()) return unknownAgent(*name);
  for (const auto agent : agents) {
    const auto log = AgentLog::read(agent);
    print(log.file.string());
    if (!log.trouble.empty()) print("  " + log.trouble);
    for (const auto& line : log.lines) print("  " + TerminalText::oneLine(line));
  }
  return 0;
}

}  // namespace halvo::ServiceCommands
