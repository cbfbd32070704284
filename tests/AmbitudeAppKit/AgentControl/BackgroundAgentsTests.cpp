#include <gtest/gtest.h>

#include "AmbitudeAppKit/AgentControl/AgentUnitFiles.h"
#include "AmbitudeAppKit/AgentControl/BackgroundAgents.h"
#include "AmbitudeAppKit/AgentControl/LaunchdPrint.h"
#include "AmbitudeAppKit/AgentControl/LegacyLaunchAgentRecovery.h"
#include "CaptureShared/Foundation/Spawn.h"
#include "Platform/Linux/SystemdServices.h"
#include "Platform/Testing/FakeServiceManager.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {

using State = BackgroundAgentState;
using Agent = BackgroundAgent;

TEST(LaunchdPrint, aFieldThatIsMissingOrDoesNotParseIsAbsent) {
  const struct { const char* text; LaunchdPrint want; } cases[] = {
      {"", {}},
      {"\tpid = 7\n\tlast exit code = 0\n runs = 3\nprogram = /a b\npath = /p = q\n", {7, 0, 3, "/a b", "/p = q"}},
      {"last exit code = (never exited)\npid = 99999999999\nruns =\npid=4\n", {}},
      {"last exit code = -9\nspid = 5\nlast exit code = 1", {.lastExitCode = -9}}};
  for (const auto& c : cases) EXPECT_EQ(LaunchdPrint::parse(c.text), c.want) << c.text;
}

struct AgentsTest : testing::Test {
  test::TemporaryFolder folder;
  FakeServiceManager manager;
  BackgroundAgents agents{{.services = manager,
                           .programFolder = folder.path(),
                           .legacyFolder = folder.path() / "old",
                           .localModelStatusFile = folder.path() / "status"}};
  const std::string name = label(Agent::coachDriver);
  State::RunState runState() const { return agents.state(Agent::coachDriver).runState; }
};

TEST_F(AgentsTest, runStates) {
  auto& job = manager.jobs[name];
  EXPECT_EQ(runState(), State::RunState(State::NotInstalled{}));
  folder.write("old/" + name + ".plist", "");
  EXPECT_EQ(runState(), State::RunState(State::InstalledNotLoaded{}));
  job.isRegistered = true, job.exitCode = 3;
  EXPECT_EQ(runState(), State::RunState(State::Running{42}));
  job.startsWhenRegistered = false;
  EXPECT_EQ(runState(), State::RunState(State::Failing{3}));
  job.exitCode = {};
  EXPECT_EQ(runState(), State::RunState(State::Idle{}));
  job.statusOnceRegistered = ServiceStatus::requiresApproval;
  EXPECT_EQ(runState(), State::RunState(State::RequiresApproval{}));
  job.printFailure = "no bus";
  EXPECT_EQ(runState(), State::RunState(State::Unknown{"no bus"}));
  EXPECT_TRUE(manager.calls.empty()) << "looking changes nothing";
}

TEST_F(AgentsTest, actions) {
  EXPECT_EQ(agents.restart(Agent::coachDriver), BackgroundAgents::RestartOutcome::notLoaded);
  manager.jobs[name].isRegistered = true;
  EXPECT_EQ(agents.restart(Agent::coachDriver), BackgroundAgents::RestartOutcome::restarted);
  manager.failingCall = 1;
  try {
    agents.remove(Agent::coachDriver);
    FAIL();
  } catch (const BackgroundAgentActionError& error) {
    EXPECT_STREQ(error.what(), "Coach couldn't be turned off just now. Try again, and restart your Mac if it keeps happening.");
  }
}

TEST(LegacyLaunchAgentRecovery, takesWhatIsNowhereElse) {
  const auto plist = [](const std::string& pairs) {
    return "<plist><dict><key>EnvironmentVariables</key> <dict>\n" + pairs + "</dict></dict></plist>";
  };
  const std::string a = "<key>AMBITCAP_LAYER3</key><string>1</string>", b = "<key>OPENROUTER_API_KEY</key>\n<string>a&amp;lt;</string>";
  const auto recovery = LegacyLaunchAgentRecovery::plan(
      {{"1", plist(a + b + "<key>PATH</key><string>/x</string>")}, {"2", "bplist00"}, {"3", plist("<key>AMBITCAP_LAYER3</key><true/>")}},
      {});
  EXPECT_EQ(recovery.settings.at("OPENROUTER_API_KEY"), "a&lt;");
  EXPECT_EQ(recovery.migratedKeys, (std::vector<std::string>{"AMBITCAP_LAYER3", "OPENROUTER_API_KEY"}));
  EXPECT_EQ(recovery.readErrors.size(), 2u);
  const auto conflict = LegacyLaunchAgentRecovery::plan({{"1", plist(a)}}, {{"AMBITCAP_LAYER3", "0"}});
  EXPECT_EQ(conflict.conflictingKeys, std::vector<std::string>{"AMBITCAP_LAYER3"});
  EXPECT_TRUE(conflict.settings.empty());
}

TEST(AgentUnitFiles, theServiceManagerAcceptsThem) {
  test::TemporaryFolder folder;
  std::vector<std::string> words{"verify", "--user", "--man=no"};
  for (const auto& agent : backgroundAgents) {
    const auto program = "a b%/" + std::string(agent.program);
    folder.write(program, "#!/bin/sh\n");
    std::filesystem::permissions(folder.path() / program, std::filesystem::perms::owner_all);
    for (const auto& file : AgentUnitFiles::of(agent.agent, folder.path() / "a b%")) {
      folder.write(file.name, file.text);
      constexpr std::string_view key = "TimeoutStopSec=";
      if (const auto found = file.text.find(key); found != std::string::npos) {
        EXPECT_LE(2 * std::stoi(file.text.substr(found + key.size())), SystemdServices::Options{}.changePatienceSec) << "a stop and its kill";
      }
      words.push_back(folder.path() / file.name);
    }
  }
  EXPECT_EQ(words.size(), 3u + 6u);
  const char* script = "command -v systemd-analyze >/dev/null || exit 0; XDG_RUNTIME_DIR=$0 exec systemd-analyze \"$@\" 2>&1";
  words.insert(words.begin(), {"-c", script, folder.path()});
  const auto checked = Spawn::capture("/bin/sh", words, {}, 30);
  ASSERT_TRUE(checked);
  EXPECT_EQ(checked->exitStatus, 0);
  EXPECT_EQ(checked->standardOutput, "");
}

}  // namespace
}  // namespace halvo
