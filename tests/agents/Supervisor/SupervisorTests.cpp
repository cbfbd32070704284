// With real children: shell scripts in the places of the sampler and the recorder.

#include <algorithm>
#include <csignal>
#include <fstream>

#include <gtest/gtest.h>

#include "CaptureShared/Recording/Supervision/CaptureFaultStore.h"
#include "agents/Supervisor/SupervisorLoop.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Eventually.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {

namespace fs = std::filesystem;
using test::eventually;
using Kind = CaptureFault::Kind;

constexpr const char* stays = "exec sleep 300";
/// Deaf to SIGTERM, and so is the child that it has.
constexpr const char* deaf = "trap '' TERM; sleep 300 & echo $! >> \"$0.pids\"; while :; do wait; done";

class SupervisorTest : public testing::Test {
 protected:
  void script(const std::string& name, const std::string& body) {
    folder.write(name, "#!/bin/sh\necho $$ >> \"$0.pids\"\n" + body + "\n");
    fs::permissions(folder.path() / name, fs::perms::owner_all);
  }
  /// Of all that have run.
  std::vector<pid_t> pids(const std::string& name) {
    std::vector<pid_t> list;
    std::ifstream file(folder.path() / (name + ".pids"));
    for (pid_t pid = 0; file >> pid;) list.push_back(pid);
    return list;
  }
  bool allGone() {
    return std::ranges::none_of(pids("Signals"), test::isRunning) && std::ranges::none_of(pids("Capturer"), test::isRunning);
  }
  std::unique_ptr<SupervisorLoop> makeLoop() {
    return std::make_unique<SupervisorLoop>(
        SupervisorLoop::Ports{.signals = folder.path() / "Signals",
                              .capturer = folder.path() / "Capturer",
                              .faultFile = faultFile,
                              .clock = {.nowMs = [this] { return 1'000'000'000 + steadyMs; },
                                        .wait = [](double, const std::stop_token& stop) { Clock::system().wait(0.01, stop); }},
                              .steadyMs = [this] { return steadyMs; },
                              .dataRootTrouble = [this] { return trouble; },
                              .captureRunStarts = [this](const RecordingControls& wanted) { ++captureRuns, startedWith = wanted.quality; },
                              .controls = [this] { return controls; },
                              .isScreenLocked = [this] { return isLocked; },
                              .sweep = [this] { ++sweeps; },
                              .log = [this](const std::string& line) { log.push_back(line); }});
  }
  /// Turns until the recorder has ended.
  bool capturerEnds(SupervisorLoop& loop) {
    return eventually([&] {
      loop.turn();
      return loop.capturer().pid() == 0;
    });
  }
  std::optional<CaptureFault> fault() const { return CaptureFaultStore::read(faultFile); }
  int said(const std::string& part) const {
    return static_cast<int>(std::count_if(log.begin(), log.end(), [&](const auto& line) { return line.find(part) != std::string::npos; }));
  }

  test::TemporaryFolder folder;
  fs::path faultFile = folder.path() / "support/capture-fault.json";
  std::int64_t steadyMs = 0;
  std::optional<std::string> trouble;
  std::optional<bool> isLocked;
  int captureRuns = 0, sweeps = 0;
  RecordingControls controls;
  RecordingControls::Quality startedWith = {};
  std::vector<std::string> log;
};

TEST_F(SupervisorTest, endsOfTheRecorderBecomeDelaysAndFaults) {
  script("Signals", stays);
  const struct { const char* end; std::optional<Kind> fault; std::int64_t delayMs; } cases[] = {
      {"exit 69", {}, 30'000}, {"exit 74", Kind::videoSinkFailed, 5'000}, {"kill -9 $$", {}, 5'000}};
  isLocked = true;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.end);
    fs::remove(faultFile);
    script("Capturer", c.end);
    auto loop = makeLoop();
    ASSERT_TRUE(capturerEnds(*loop));
    EXPECT_EQ(fault() ? std::optional(fault()->kind) : std::nullopt, c.fault);
    const auto signalsPID = loop->signals().pid();
    const auto runs = captureRuns;
    steadyMs += c.delayMs - 1;
    loop->turn();
    EXPECT_EQ(captureRuns, runs) << "too early";
    steadyMs += 1;
    loop->turn();
    EXPECT_EQ(captureRuns, runs + 1);
    EXPECT_EQ(loop->signals().pid(), signalsPID) << "the sampler runs through it";
  }
}

TEST_F(SupervisorTest, aLoopOfCrashesIsTellableAndAHealthyRunClearsIt) {
  script("Signals", "exit 1");
  script("Capturer", "exit 70");
  auto loop = makeLoop();
  for (int crash = 1; crash <= 6; ++crash, steadyMs += 20'000) {
    ASSERT_TRUE(capturerEnds(*loop));
    EXPECT_EQ(fault().has_value(), crash >= 5) << crash;
  }
  EXPECT_EQ(fault()->kind, Kind::crashLooping);
  EXPECT_EQ(fault()->consecutiveFailures, 6);
  EXPECT_EQ(said("Capturer ended with 70; started again in 5 s"), 1) << "once";

  script("Capturer", stays);
  for (const int laterMs : {0, 59'999, 1}) {
    EXPECT_TRUE(fault());
    steadyMs += laterMs;
    loop->turn();
  }
  EXPECT_FALSE(fault());
  // What was written in this run, or is no matter of it, stays through it.
  for (const auto kind : {Kind::recordingKeyRotated, Kind::denylistFilterUnreliable}) {
    auto next = makeLoop();
    const auto before = 1'000'000'000 + steadyMs - (kind == Kind::recordingKeyRotated ? 1'000 : 0);
    CaptureFaultStore::write({.kind = kind, .sinceMs = before, .updatedAtMs = before}, faultFile);
    next->turn();
    steadyMs += 60'000;
    next->turn();
    EXPECT_EQ(fault()->kind, kind);
  }
  // One of a clock that was ahead doesn't.
  auto last = makeLoop();
  CaptureFaultStore::write({.kind = Kind::videoSinkFailed, .updatedAtMs = 2'000'000'000 + steadyMs}, faultFile);
  last->turn();
  steadyMs += 60'000;
  last->turn();
  EXPECT_FALSE(fault());
}

TEST_F(SupervisorTest, obeysThePersonWhichIsNoFailure) {
  script("Signals", stays);
  script("Capturer", deaf);
  auto loop = makeLoop();
  loop->turn();
  const auto signalsPID = loop->signals().pid();
  for (unsigned pauses = 1; pauses <= 6; ++pauses) {
    ASSERT_TRUE(eventually([&] { return pids("Capturer").size() == pauses + 1; }));
    controls = controls.paused(1'000'000'000 + steadyMs, 1'000'000'000 + steadyMs + 1'000);
    ASSERT_TRUE(capturerEnds(*loop));
    script("Capturer", "trap 'exit 70' TERM; sleep 300 & wait");
    for (const int laterMs : {999, 1}) {
      EXPECT_EQ(loop->capturer().pid(), 0);
      steadyMs += laterMs;
      loop->turn();
    }
    EXPECT_NE(loop->capturer().pid(), 0) << "the pause ends by itself, and nothing holds the start up";
  }
  EXPECT_FALSE(fault());
  controls.quality = RecordingControls::Quality::compact;
  ASSERT_TRUE(eventually([&] { return loop->turn(), captureRuns == 8; }));
  EXPECT_EQ(startedWith, controls.quality);
  EXPECT_EQ(loop->signals().pid(), signalsPID) << "the sampler goes on";
  EXPECT_EQ(said("ended with"), 0);
}

TEST_F(SupervisorTest, waitsForADataRootAndSweepsEachHour) {
  script("Signals", stays);  // and no recorder at all
  trouble = "the volume is away";
  auto loop = makeLoop();
  for (int i = 0; i < 5; ++i) loop->turn();
  EXPECT_EQ(loop->signals().pid(), 0);
  EXPECT_EQ(said("recording nothing: the volume is away"), 1);
  trouble.reset();
  for (int i = 0; i < 3; ++i, steadyMs += 5'000) loop->turn();
  EXPECT_GT(loop->signals().pid(), 0);
  EXPECT_EQ(said("Capturer could not be started"), 1);
  EXPECT_FALSE(fault());
  for (const auto& [atMs, count] : {std::pair{179'999, 0}, {180'000, 1}, {3'779'999, 1}, {3'780'000, 2}}) {
    steadyMs = atMs;
    loop->turn();
    EXPECT_EQ(sweeps, count) << atMs;
  }
}

TEST_F(SupervisorTest, theProgramTakesItsChildrenAlong) {
  fs::copy_file(std::string(HALVO_BIN) + "/Supervisor", folder.path() / "Supervisor");
  fs::create_directory(folder.path() / "data");
  script("Signals", stays);
  const auto environment = test::programEnvironment(folder.path(), folder.path() / "data");
  for (const auto& [signal, body, runs] : {std::tuple{SIGTERM, deaf, 2u}, {SIGKILL, stays, 3u}}) {
    SCOPED_TRACE(signal);
    script("Capturer", body);
    test::ChildProcess program((folder.path() / "Supervisor").string(), {}, environment);
    ASSERT_TRUE(eventually([&, wanted = runs] { return pids("Capturer").size() == wanted && pids("Signals").size() == wanted - 1; }));
    EXPECT_TRUE(fs::exists(folder.path() / "data/manifest.json"));
    const auto running = pids("Signals");
    EXPECT_EQ(test::ChildProcess((folder.path() / "Supervisor").string(), {}, environment).wait(4), 0) << "a second one ends";
    EXPECT_EQ(pids("Signals"), running);
    program.signal(signal);
    EXPECT_EQ(program.wait(4), signal == SIGTERM ? 0 : 128 + SIGKILL);
    EXPECT_TRUE(eventually([&] { return allGone(); }, signal == SIGTERM ? 0.1 : 2)) << "the grandchild too";
  }
}

}  // namespace
}  // namespace halvo
