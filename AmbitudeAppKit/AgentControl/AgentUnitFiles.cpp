#include "AmbitudeAppKit/AgentControl/AgentUnitFiles.h"

#include <fmt/format.h>

#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Foundation/UserFolders.h"

namespace halvo::AgentUnitFiles {

namespace {

/// What an agent may hold at most, far above what it needs: a leak ends the agent and not the desktop. None for the model server, whose
/// weights are as large as the model.
const char* memoryLimit(BackgroundAgent agent) {
  switch (agent) {
    case BackgroundAgent::captureSupervisor: return "MemoryMax=3G\n";  // with Signals, Capturer and its encoder
    case BackgroundAgent::classifier: return "MemoryMax=2G\n";         // with text recognition
    case BackgroundAgent::coachDriver:
    case BackgroundAgent::consolidate: return "MemoryMax=1G\n";
    case BackgroundAgent::localModel: return "";
  }
  return "";
}

/// A path where the manager knows specifiers only.
std::string plain(const std::filesystem::path& path) { return Text::replaceAll(path.string(), "%", "%%"); }

/// A path as one word of ExecStart, which knows specifiers, variables and escapes.
std::string quoted(const std::filesystem::path& path) {
  auto text = plain(path);
  for (const auto& [from, to] : {std::pair{"\\", "\\\\"}, {"\"", "\\\""}, {"$", "$$"}}) text = Text::replaceAll(std::move(text), from, to);
  return "\"" + text + "\"";
}

std::string service(const BackgroundAgentFacts& agent, const std::filesystem::path& programFolder) {
  const bool isModel = agent.agent == BackgroundAgent::localModel;
  std::string unit = fmt::format("[Unit]\nDescription={}\n", agent.description);
  // What looks at the screen lives and ends with the graphical session; DISPLAY and XAUTHORITY are in the manager's environment by then.
  if (!agent.isScheduled && !isModel) unit += "PartOf=graphical-session.target\nAfter=graphical-session.target\n";
  // Without its program, as after the package was taken away, the job rests instead of failing every two seconds.
  unit += fmt::format("ConditionFileIsExecutable={}\n", plain(programFolder / agent.program));
  // The agents wait for longer, where that helps, themselves: the manager never gives up.
  if (!agent.isScheduled) unit += "StartLimitIntervalSec=0\n";
  unit += fmt::format("\n[Service]\nType={}\nExecStart={}\n", agent.isScheduled ? "oneshot" : "exec",
                      quoted(programFolder / agent.program));
  if (!agent.isScheduled) unit += fmt::format("Restart=always\nRestartSec={}\n", isModel ? 30 : 2);
  unit += fmt::format("TimeoutStopSec={}\n", isModel ? 3 : 10);
  unit += "UMask=0077\nLimitCORE=0\nNoNewPrivileges=yes\nRestrictSUIDSGID=yes\nLockPersonality=yes\n";
  // A temporary folder of its own, emptied when it ends. PrivateTmp would hide the X server's socket.
  unit += fmt::format("RuntimeDirectory=halvo-{0}\nRuntimeDirectoryMode=0700\nEnvironment=TMPDIR=%t/halvo-{0}\n", agent.shortName);
  unit += memoryLimit(agent.agent);
  if (agent.isScheduled) unit += "Nice=10\nIOSchedulingClass=idle\n";
  if (!agent.isScheduled) unit += fmt::format("\n[Install]\nWantedBy={}\n", isModel ? "default.target" : "graphical-session.target");
  return unit;
}

/// Hourly through the night: the job itself knows whether power, warmth and the person allow it, and when it has already run.
std::string timer(const BackgroundAgentFacts& agent) {
  return fmt::format(
      "[Unit]\nDescription={} (nightly)\n\n[Timer]\nOnCalendar=*-*-* 00..07:30:00\nPersistent=yes\nRandomizedDelaySec=300\n"
      "\n[Install]\nWantedBy=timers.target\n",
      agent.description);
}

}  // namespace

std::vector<UnitFile> of(BackgroundAgent agent, const std::filesystem::path& programFolder) {
  std::vector<UnitFile> files{{label(agent) + ".service", service(facts(agent), programFolder)}};
  if (facts(agent).isScheduled) files.push_back({label(agent) + ".timer", timer(facts(agent))});
  return files;
}

std::vector<UnitFile> ofLabel(const std::string& label, const std::filesystem::path& programFolder) {
  const auto agent = fromRawValue<BackgroundAgent>(label);
  return agent ? of(*agent, programFolder) : std::vector<UnitFile>{};
}

std::filesystem::path folder(const Environment& environment) { return UserFolders::configDir(environment) / "systemd/user"; }
std::filesystem::path legacyFolder(const Environment& environment) { return UserFolders::home(environment) / "Library/LaunchAgents"; }

bool isInstalled(BackgroundAgent agent, const Environment& environment) {
  std::error_code ignored;
  return std::filesystem::exists(folder(environment) / (label(agent) + ".service"), ignored) ||
         std::filesystem::exists(legacyFolder(environment) / (label(agent) + ".plist"), ignored);
}

}  // namespace halvo::AgentUnitFiles
