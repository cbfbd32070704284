// The program itself, talking to the practice model over a real socket, with what a person types in between.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <csignal>

#include "CaptureShared/EventLog/EventLogReader.h"
#include "CaptureShared/EventLog/JSONLAppend.h"
#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "tests/AmbitudeCore/Gate/GateScene.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Eventually.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {

using test::eventually;

class CoachDriverProgramTest : public testing::Test {
 protected:
  CoachDriverProgramTest() { std::filesystem::create_directories(root / "io-layer"); }

  std::string startModel(std::vector<std::string> arguments = {}) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    const FileHandle out(ends[0]);
    arguments.insert(arguments.begin(), {"--listen", "http://127.0.0.1:0"});
    {
      const FileHandle in(ends[1]);
      model = test::ChildProcess(bin("PracticeModel"), arguments, environment(), {{.ours = in.fd(), .childs = 1}});
    }
    std::string line;
    for (char c = 0; ::read(out.fd(), &c, 1) == 1 && c != '\n';) line += c;
    return line.substr(line.rfind(' ') + 1);
  }
  /// Running, and past the first look, which pins from when on it reads.
  test::ChildProcess startDriver() {
    auto driver = launchDriver();
    EXPECT_TRUE(eventually([&] { return std::filesystem::exists(root / "io-layer/layer3-floor.json"); }));
    return driver;
  }
  test::ChildProcess launchDriver() {
    const FileHandle log(::open((folder.path() / "driver.log").c_str(), O_CREAT | O_WRONLY | O_APPEND | O_CLOEXEC, 0600));
    return {bin("CoachDriver"), {}, environment(), {{.ours = log.fd(), .childs = 1}, {.ours = log.fd(), .childs = 2}}};
  }
  std::string halvo(const std::vector<std::string>& arguments) {
    const FileHandle out(::open((folder.path() / "out").c_str(), O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0600));
    test::ChildProcess command(bin("halvo"), arguments, environment(), {{.ours = out.fd(), .childs = 1}, {.ours = out.fd(), .childs = 2}});
    EXPECT_EQ(command.wait(40), 0);
    return readFile(folder.path() / "out");
  }
  Environment environment() const {
    return {{"HOME", folder.path().string()},
            {"PATH", "/usr/bin:/bin"},
            {"TZ", "America/New_York"},
            {"AMBITCAP_DATA_ROOT", root.string()},
            {"AMBITCAP_LAYER3", "1"},
            {"AMBITCAP_GATE_LOG", "1"},
            {"AMBITCAP_LOCAL_INFERENCE_ENDPOINT", modelURL}};
  }
  static std::string bin(const char* name) { return std::string(HALVO_BIN) + "/" + name; }
  int count(std::string_view type) const {
    int found = 0;
    if (std::filesystem::exists(root / "io-layer/events.jsonl"))
      for (const auto& row : EventLogReader::read(root / "io-layer/events.jsonl")) found += row.type == type;
    return found;
  }
  void tick(const char* state) const {
    JSONLAppend::append(std::string_view(GateScene::tick(Clock::system().nowMs(), state, "Steam", "a game is open").encode()),
                        root / "checker-log.jsonl");
  }
  std::string driverLog() const { return readFile(folder.path() / "driver.log"); }

  test::TemporaryFolder folder;
  std::filesystem::path root = folder.path() / "data";
  std::string modelURL;
  test::ChildProcess model;
};

TEST_F(CoachDriverProgramTest, asksAnswersAndPicksUpWhereAKilledOneLeft) {
  modelURL = startModel();
  auto driver = startDriver();
  halvo({"declare", "write the essay"});
  tick("NOT_ALIGNED");
  ASSERT_TRUE(eventually([&] { return count("ui_opened") == 1; }, 20)) << driverLog();
  auto second = launchDriver();
  EXPECT_EQ(second.wait(10), 0) << "one at a time";
  const auto answer = halvo({"say", "i'm going to take a walk for 20 min", "--wait", "30"});
  EXPECT_NE(answer.find("Lark      I wrote down: "), std::string::npos) << answer;
  EXPECT_EQ(count("task_declared"), 2);
  EXPECT_TRUE(eventually([&] { return readFile(folder.path() / ".ambitude/current-task.txt").find("walk") != std::string::npos; }));
  EXPECT_NE(halvo({"status"}).find("intention: "), std::string::npos);
  EXPECT_NE(driverLog().find("another CoachDriver runs"), std::string::npos);

  driver.signal(SIGKILL);
  EXPECT_EQ(driver.wait(5), 128 + SIGKILL);
  EXPECT_EQ(halvo({"say", "thanks"}), "sent\n");
  const auto messages = count("app_chat_message");
  tick("NOT_ALIGNED");
  driver = startDriver();
  ASSERT_TRUE(eventually([&] { return count("app_chat_message") == messages + 1; }, 20)) << driverLog();
  EXPECT_EQ(count("coach_checkin"), 1);
  driver.signal(SIGTERM);
  EXPECT_EQ(driver.wait(1), 0);
  EXPECT_TRUE(driverLog().ends_with("layer3: the coach ends\n")) << driverLog();
}

TEST_F(CoachDriverProgramTest, endsWithinASecondInsideACallThatHangs) {
  modelURL = startModel({"--fault", "hang"});
  auto driver = startDriver();
  halvo({"say", "hello"});
  ASSERT_TRUE(eventually([&] { return std::filesystem::exists(root / "io-layer/coach-stream.jsonl"); }, 20)) << driverLog();
  const auto began = std::chrono::steady_clock::now();
  driver.signal(SIGTERM);
  EXPECT_EQ(driver.wait(5), 0);
  EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(1));
  EXPECT_EQ(count("coach_turn_failed"), 0) << "an ending is no failed turn";
}

}  // namespace
}  // namespace halvo
