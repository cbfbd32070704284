#include <gtest/gtest.h>

#include "AmbitudeAppKit/AgentControl/AgentServiceMigrationRunner.h"
#include "Platform/Testing/FakeServiceManager.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {

using namespace AgentServiceMigration;
using Agent = BackgroundAgent;
constexpr std::optional<bool> triState[] = {std::nullopt, false, true};
constexpr ServiceStatus allStatuses[] = {ServiceStatus::notRegistered, ServiceStatus::enabled, ServiceStatus::requiresApproval,
                                         ServiceStatus::notFound};

TEST(AgentServiceMigration, neverActsOnTheUnknownAndNeverLeavesAJobWithNothing) {
  int acted = 0;
  for (const auto loaded : triState)
    for (const auto disabled : triState)
      for (const auto bundle : triState)
        for (const bool legacy : {false, true})
          for (const bool interrupted : {false, true})
            for (const auto status : allStatuses) {
              const auto result = action({"l", legacy, loaded, disabled, interrupted, status, bundle});
              const auto* step = std::get_if<Step>(&result);
              ASSERT_EQ(step == nullptr, !loaded || !disabled || *disabled);
              if (!step) continue;
              ++acted;
              const bool registrationRuns = status == ServiceStatus::enabled && *loaded && bundle != false;
              const bool isInstall = *step == Step::registerIt || *step == Step::reregister;
              EXPECT_TRUE(*step != Step::nothing || registrationRuns || status == ServiceStatus::requiresApproval);
              EXPECT_TRUE(*step != Step::retire || (registrationRuns && legacy && !interrupted));
              EXPECT_TRUE((*step != Step::move || legacy) && !(isInstall && legacy));
            }
  EXPECT_EQ(acted, 2 * 3 * 2 * 2 * 4);
  const auto reason = [](std::optional<bool> loaded, std::optional<bool> disabled) {
    return std::get<Leave>(action({.loaded = loaded, .disabled = disabled})).reason;
  };
  EXPECT_EQ(reason({}, {}), LeaveReason::launchdUnknown);
  EXPECT_EQ(reason(true, {}), LeaveReason::disableStateUnknown);
  EXPECT_EQ(reason(true, true), LeaveReason::disabledByLaunchd);
  const Job job{.loaded = false, .disabled = false};
  EXPECT_EQ(plan(Precondition::debugBuild, std::span(&job, 1)), std::vector<Action>{Step::nothing});
}

TEST(AgentServiceMigration, precondition) {
  const std::string team(developerTeamID), path(installedAppPath);
  EXPECT_EQ(precondition({team, path + "/"}), Precondition::ok);
  EXPECT_EQ(precondition({team, path + "//"}), Precondition::notInstalledCopy);
  EXPECT_EQ(precondition({team, path, true}), Precondition::notInstalledCopy);
  EXPECT_EQ(precondition({{}, path, true}), Precondition::notDeveloperID);
  EXPECT_EQ(precondition({{}, path, true, true}), Precondition::debugBuild);
}

TEST(AgentServiceMigration, verdict) {
  const auto roll = [](const char* reason) { return Verdict(RollBack{reason}); };
  constexpr auto enabled = ServiceStatus::enabled;
  const struct { ServiceStatus status; Observation seen; RequiresPid pid; Verdict want; } cases[] = {
      {ServiceStatus::requiresApproval, {}, RequiresPid::yes, AwaitingApproval{}},
      {ServiceStatus::notFound, {true, true, true}, RequiresPid::no, roll("macOS reports the registration as notFound")},
      {enabled, {false, true, true}, RequiresPid::no, roll("launchd has no job after registering")},
      {enabled, {true, false, true}, RequiresPid::no, roll("launchd runs a program outside this bundle")},
      {enabled, {true, true, true, 9}, RequiresPid::yes, Committed{}},
      {enabled, {true, true, false, 78}, RequiresPid::yes, roll("the job exited 78 (the launch-constraint kill, #387)")},
      {enabled, {true, true, false, 1}, RequiresPid::yes, roll("the job exited 1")},
      {enabled, {true, true, false, 0}, RequiresPid::yes, roll("the job has no process")},
      {enabled, {true, true, false}, RequiresPid::yes, roll("the job has no process")},
      {enabled, {true, true, false, 69}, RequiresPid::no, Committed{}}};
  for (const auto& c : cases) EXPECT_EQ(verdict(c.status, c.seen, c.pid), c.want);
}

TEST(AgentServiceMigration, aFailureIsToldByWhatHelps) {
  const struct { const char* domain; int code; const char* want; } cases[] = {
      {"NSPOSIXErrorDomain", EACCES, "Check that Halvo is on in Login Items, then try again."},
      {"NSPOSIXErrorDomain", ENOENT, "This copy of Halvo looks damaged, so Coach"},
      {"NSPOSIXErrorDomain", ETIMEDOUT, "Coach couldn't be turned on just now."},
      {"elsewhere", EACCES, "Coach couldn't be turned on just now."}};
  for (const auto& c : cases)
    EXPECT_NE(userMessage(ServiceAction::turnOn, "Coach", errorKind(c.domain, c.code)).find(c.want), std::string::npos) << c.domain << c.code;
}

TEST(AgentServiceMigration, banners) {
  using enum ServiceStatus;
  const auto statuses = [](ServiceStatus capture, ServiceStatus coach, ServiceStatus model) {
    return std::vector<std::pair<Agent, ServiceStatus>>{
        {Agent::captureSupervisor, capture}, {Agent::coachDriver, coach}, {Agent::localModel, model}};
  };
  EXPECT_EQ(approvalBanner(statuses(enabled, enabled, notRegistered)), ApprovalBanner::hidden);
  EXPECT_EQ(approvalBanner(statuses(requiresApproval, enabled, enabled)), ApprovalBanner::captureOff);
  EXPECT_EQ(approvalBanner(statuses(enabled, requiresApproval, enabled)), ApprovalBanner::coachOff);
  EXPECT_EQ(approvalBanner(statuses(requiresApproval, requiresApproval, enabled)), ApprovalBanner::partlyOff);
  EXPECT_EQ(offCard(statuses(enabled, enabled, enabled)), OffCard(OffCardState::hidden));
  EXPECT_EQ(offCard(statuses(notFound, notRegistered, requiresApproval)), OffCard(OffCardState::allOff));
  EXPECT_EQ(offCard(statuses(enabled, notRegistered, enabled)), OffCard(SomeOff{{Agent::coachDriver}}));
  const Liveness runs{enabled, true, true}, died{enabled, true, false}, off{notRegistered};
  EXPECT_EQ(stoppedBanner(died, died), StoppedBanner::captureStopped);
  EXPECT_EQ(stoppedBanner(off, died), StoppedBanner::coachStopped);
  EXPECT_EQ(stoppedBanner(off, runs), StoppedBanner::hidden);
}

struct RunnerTest : testing::Test {
  test::TemporaryFolder folder;
  FakeServiceManager manager;
  const std::string name = label(Agent::coachDriver);
  std::vector<std::string> log;
  std::optional<int> failingRemoval;
  int removals = 0;

  AgentServiceMigrationRunner::Outcome run() {
    const Agent agents[] = {Agent::coachDriver};
    return AgentServiceMigrationRunner({.services = manager,
                                        .programFolder = "/usr/lib/halvo",
                                        .legacyFolder = folder.path() / "old",
                                        .markerFolder = folder.path() / "markers",
                                        .removeFile =
                                            [&](const std::filesystem::path& file) {
                                              if (failingRemoval == removals++) throw std::system_error(EIO, std::generic_category());
                                              std::filesystem::remove(file);
                                            },
                                        .clock = {.nowMs = {}, .wait = [](double, const std::stop_token&) {}},
                                        .log = [&](const std::string& line) { log.push_back(line); }})
        .run(Precondition::ok, agents)[0];
  }
  void layLegacy() {
    folder.write("old/" + name + ".plist", "");
    manager.jobs[name].isLegacyLoaded = true;
  }
  bool hasLegacy() const { return std::filesystem::exists(folder.path() / "old" / (name + ".plist")); }
  bool isMarked() const { return std::filesystem::exists(folder.path() / "markers" / name); }
};

TEST_F(RunnerTest, aFailureAnywhereKeepsTheJobAndTheNextRunGoesOn) {
  enum class How { fails, killed, unknown };
  const struct { const char* name; bool hasLegacy, isRegistered, isMarked; } starts[] = {
      {"a legacy job", true, false, false},
      {"a registration beside its legacy file", true, true, false},
      {"the same, broken off", true, true, true},
      {"a renewal", false, true, true}};
  for (const auto& start : starts)
    for (const bool runs : {true, false})
      for (const auto how : {How::fails, How::killed, How::unknown})
        for (int at = 0; at < 8; ++at)
          for (const auto removal : {std::optional<int>(), std::optional<int>(0), std::optional<int>(1)}) {
            SCOPED_TRACE(testing::Message() << start.name << " " << runs << " " << int(how) << " " << at << " " << removal.value_or(-1));
            manager = {}, log = {}, removals = 0;
            if (start.hasLegacy) layLegacy();
            if (start.isMarked) folder.write("markers/" + name, "");
            auto& job = manager.jobs[name];
            job.startsWhenRegistered = runs;
            if (start.isRegistered) job.isLegacyLoaded = false, job.isRegistered = true, job.text = "old";
            (how == How::killed ? manager.killingCall : manager.failingCall) = how == How::unknown ? 99 : at;
            if (how == How::unknown) job.answersUntilUnknown = at;
            failingRemoval = removal;
            std::optional<AgentServiceMigrationRunner::Outcome> outcome;
            try {
              outcome = run();
            } catch (const FakeServiceManager::Killed&) {
            }
            const bool isRunning = job.isRegistered && job.starts();
            const auto failed = static_cast<std::size_t>(at);
            const bool triedToBringBack = failed < manager.calls.size() && manager.calls[failed] == "reinstate";
            EXPECT_TRUE(hasLegacy() || isRunning || (isMarked() && (!outcome || triedToBringBack)));
            EXPECT_TRUE(job.isLegacyLoaded || job.isRegistered || isMarked()) << "what did not come back is remembered";
            if (outcome && !start.isRegistered) {
              EXPECT_TRUE(outcome->isSettled || !log.empty() || manager.calls.empty());
              EXPECT_EQ(outcome->isSettled, isRunning && !hasLegacy() && !isMarked());
            }
            manager.failingCall = manager.killingCall = {}, failingRemoval = {}, job.startsWhenRegistered = true;
            job.answersUntilUnknown = INT_MAX;
            run();
            EXPECT_TRUE(job.isRegistered && !hasLegacy() && !isMarked() && !job.isLegacyLoaded);
          }
}

TEST_F(RunnerTest, aRegistrationThatDoesNotStartIsTakenBackAndSaidWhy) {
  layLegacy();
  auto& job = manager.jobs[name];
  job.startsWhenRegistered = false, job.exitCode = 78;
  EXPECT_EQ(run().line, setUpButDidNotStartLine);
  EXPECT_EQ(manager.calls, (std::vector<std::string>{"bootout", "register", "unregister", "loadLegacy"}));
  EXPECT_EQ(log, std::vector{name + ": rolled back: the job exited 78 (the launch-constraint kill, #387)"});
  EXPECT_TRUE(job.isLegacyLoaded && hasLegacy() && !isMarked());

  for (const int answers : {0, 1}) {  // 1: of one to be retired, whose proof gets no answer
    manager = {}, manager.jobs[name] = {.isRegistered = true, .answersUntilUnknown = answers};
    EXPECT_EQ(run().line, rowLine(LeaveReason::launchdUnknown));
    EXPECT_TRUE(manager.calls.empty() && hasLegacy());
  }

  manager = {}, manager.jobs[name] = {.isLegacyLoaded = true, .statusOnceRegistered = ServiceStatus::requiresApproval};
  EXPECT_FALSE(run().isSettled);
  EXPECT_TRUE(hasLegacy() && manager.jobs[name].isRegistered);
}

}  // namespace
}  // namespace halvo
