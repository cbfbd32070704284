#include <gtest/gtest.h>

#include <algorithm>

#include "AmbitudeAppKit/AgentControl/AgentActions.h"
#include "AmbitudeAppKit/AgentControl/AgentUnitFiles.h"
#include "CaptureShared/DataRoot/AgentConfig.h"
#include "Platform/Testing/FakeServiceManager.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {

using Agent = BackgroundAgent;

struct AgentActionsTest : testing::Test {
  AgentActionsTest() {
    for (const auto& agent : backgroundAgents) {
      const auto program = folder.path() / "bin" / agent.program;
      folder.write("bin/" + std::string(agent.program), "");
      std::filesystem::permissions(program, std::filesystem::perms::owner_all);
      manager.jobs[label(agent.agent)].program = program;
    }
  }
  AgentActions actions(AgentServiceMigration::Precondition allowed = AgentServiceMigration::Precondition::ok) {
    return AgentActions({.control = {.services = manager, .programFolder = folder.path() / "bin", .legacyFolder = folder.path() / "old"},
                         .unitFolder = folder.path() / "units",
                         .markerFolder = folder.path() / "markers",
                         .configFile = folder.path() / "config.json",
                         .allowed = allowed,
                         .installedFolder = "/usr/lib/halvo",
                         .dataRoot = [this] { return std::optional(folder.path()); },
                         .clock = {.nowMs = [] { return std::int64_t{1'000}; }, .wait = [](double, const std::stop_token&) {}}});
  }
  FakeServiceManager::Job& job(Agent agent) { return manager.jobs[label(agent)]; }
  AgentActions::Tell tell = [this](const AgentActions::Told& told) { said.push_back((told.isDone ? "" : "! ") + told.words); };

  test::TemporaryFolder folder;
  FakeServiceManager manager;
  std::vector<std::string> said;
};

TEST_F(AgentActionsTest, aStartGoesOnWithWhatIsThereAndTouchesNothingElse) {
  for (const auto& file : AgentUnitFiles::of(Agent::captureSupervisor, folder.path() / "bin"))
    folder.write("units/" + file.name, file.text);
  job(Agent::captureSupervisor).isRegistered = true;  // as this copy would write it
  job(Agent::classifier).isRegistered = true;         // by an older copy
  folder.write("old/" + label(Agent::coachDriver) + ".plist", "<plist><dict></dict></plist>");
  folder.write("markers/" + label(Agent::consolidate), "");
  actions(AgentServiceMigration::Precondition::notInstalledCopy).start(tell);
  EXPECT_TRUE(manager.calls.empty() && said.empty());
  actions().start(tell);
  EXPECT_FALSE(job(Agent::localModel).isRegistered) << "the person removed it";
  EXPECT_TRUE(job(Agent::coachDriver).isRegistered && job(Agent::consolidate).isRegistered);
  EXPECT_EQ(std::ranges::count(manager.calls, "unregister"), 1) << "the classifier's";
}

TEST_F(AgentActionsTest, aRenewalThatFailsAnywhereIsGoneOnWithAtTheNextStart) {
  auto& classifier = job(Agent::classifier);
  const auto marker = folder.path() / "markers" / label(Agent::classifier);
  for (std::size_t failing = 0; failing < 5; ++failing) {  // 3 is the old one's return, and 4 is none
    classifier.isRegistered = true, classifier.text = "old", classifier.startsWhenRegistered = failing < 2;
    manager.calls = {}, manager.failingCall = failing;
    actions().start(tell);
    EXPECT_TRUE((classifier.isRegistered && classifier.starts()) || (failing == 3 && std::filesystem::exists(marker))) << failing;
    classifier.startsWhenRegistered = true, manager.failingCall = {};
    actions().start(tell);
    EXPECT_TRUE(classifier.isRegistered && classifier.text == "new") << failing;
    EXPECT_TRUE(std::filesystem::is_empty(folder.path() / "markers"));
  }
}

TEST_F(AgentActionsTest, aRemovalLeavesNothingThatTheNextStartGoesOnWith) {
  const Agent capture[] = {Agent::captureSupervisor};
  const auto note = folder.path() / "capture-removal-intent.json";
  folder.write("old/" + label(capture[0]) + ".plist", "<plist><dict><key>EnvironmentVariables</key><dict><key>AMBITCAP_LAYER3</key>"
                                                      "<string>1</string></dict></dict></plist>");
  job(capture[0]).isLegacyLoaded = true;
  actions().remove(capture, tell);
  actions().start(tell);
  EXPECT_FALSE(job(capture[0]).isLegacyLoaded || job(capture[0]).isRegistered);
  EXPECT_EQ(AgentConfig::load(folder.path() / "config.json").settings.count("AMBITCAP_LAYER3"), 1u) << "it was nowhere else";
  EXPECT_TRUE(std::filesystem::exists(note));
  actions().install(capture, tell);
  EXPECT_FALSE(std::filesystem::exists(note));
}

TEST_F(AgentActionsTest, aSetUpStartsAnewWhatRanBeforeAndKeepsWhatFails) {
  for (const auto& file : AgentUnitFiles::of(Agent::captureSupervisor, folder.path() / "bin"))
    folder.write("units/" + file.name, file.text);
  using Precondition = AgentServiceMigration::Precondition;
  using Calls = std::vector<std::string>;
  // The classifier's registration is an older copy's, so it is renewed and needs no restart.
  const Calls all{"reload", "register", "register", "unregister", "register", "register", "kickstart"};
  const struct {
    const char* name;
    Precondition allowed;
    std::optional<std::size_t> failingCall;
    Calls calls;
    std::size_t lines, linesAfterRestart;
  } cases[] = {{"all goes well", Precondition::ok, {}, all, 0, 0},
               {"settings not read", Precondition::ok, 0, all, 1, 0},
               {"no restart", Precondition::ok, 6, all, 1, 0},
               {"not the installed copy", Precondition::debugBuild, {}, {"reload", "kickstart", "kickstart"}, 5, 5}};
  const Agent capture[] = {Agent::captureSupervisor};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    for (const auto& agent : backgroundAgents) job(agent.agent).isRegistered = false;
    job(Agent::captureSupervisor).isRegistered = job(Agent::classifier).isRegistered = true;
    manager.calls = {}, manager.failingCall = c.failingCall;
    auto hand = actions(c.allowed);
    hand.installAfterSetup(tell);
    EXPECT_EQ(manager.calls, c.calls);
    EXPECT_EQ(hand.lines().size(), c.lines);
    manager.failingCall = {};
    hand.restart(capture, tell);
    EXPECT_EQ(hand.lines().size(), c.linesAfterRestart);
  }
}

TEST_F(AgentActionsTest, whatStandsInTheWayIsKeptUntilItIsGone) {
  const Agent coach[] = {Agent::coachDriver};
  auto hand = actions();
  job(Agent::coachDriver).startsWhenRegistered = false;
  hand.install(coach, tell);
  EXPECT_EQ(said, std::vector<std::string>{"! " + std::string(AgentServiceMigration::setUpButDidNotStartLine)});
  EXPECT_EQ(hand.lines().size(), 1u);
  job(Agent::coachDriver).startsWhenRegistered = true;
  hand.install(coach, tell);
  EXPECT_TRUE(hand.lines().empty());
  hand.remove(coach, tell);
  EXPECT_FALSE(job(Agent::coachDriver).isRegistered);
  auto elsewhere = actions(AgentServiceMigration::Precondition::debugBuild);
  elsewhere.install(coach, tell);
  EXPECT_TRUE(said.back().starts_with("! this copy (")) << said.back();
  EXPECT_FALSE(job(Agent::coachDriver).isRegistered);
}

}  // namespace
}  // namespace halvo
