// The program itself, talking to the practice model over a real socket, with what a person types in between.

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>

#include "CaptureShared/EventLog/EventLogReader.h"
#include "CaptureShared/EventLog/JSONLAppend.h"
#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "tests/AmbitudeCore/Gate/GateScene.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Eventually.h"
#include "tests/support/RemoteService.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {

using test::eventually;

class CoachDriverProgramTest : public testing::Test {
 protected:
  CoachDriverProgramTest() { std::filesystem::create_directories(root / "io-layer"); }

  std::string startModel(std::vector<std::string> arguments = {}) {
    arguments.insert(arguments.begin(), {"--listen", "http://127.0.0.1:0"});
    std::string line;
    model = test::ChildProcess::greeting(bin("PracticeModel"), arguments, environment(), line);
    return line.substr(line.rfind(' ') + 1);
  }
  /// Running, and past the first look, which pins from when on it reads.
  test::ChildProcess startDriver() {
    auto driver = launchDriver();
    EXPECT_TRUE(eventually([&] { return std::filesystem::exists(root / "io-layer/layer3-floor.json"); }));
    return driver;
  }
  test::ChildProcess launchDriver() {
    return test::ChildProcess::logged(bin("CoachDriver"), {}, environment(), folder.path() / "driver.log");
  }
  std::string halvo(const std::vector<std::string>& arguments) {
    std::filesystem::remove(folder.path() / "out");
    EXPECT_EQ(test::ChildProcess::logged(bin("halvo"), arguments, environment(), folder.path() / "out").wait(40), 0);
    return readFile(folder.path() / "out");
  }
  Environment environment() const {
    auto all = test::programEnvironment(folder.path(), root, more);
    all.insert({{"AMBITCAP_LAYER3", "1"}, {"AMBITCAP_GATE_LOG", "1"}, {"AMBITCAP_LOCAL_INFERENCE_ENDPOINT", modelURL}});
    return all;
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
  Environment more;
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
  const auto pidFile = root / "io-layer/coach-driver.pid";
  const auto longAgo = std::chrono::file_clock::from_sys(std::chrono::sys_seconds(std::chrono::seconds(1'000)));
  std::filesystem::last_write_time(pidFile, longAgo);
  EXPECT_TRUE(eventually([&] { return std::filesystem::last_write_time(pidFile) > longAgo; })) << "at each wake";
  EXPECT_EQ(readFile(pidFile), std::to_string(driver.pid()) + "\n");

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
  driver.signal(SIGTERM);
  EXPECT_EQ(driver.wait(1), 0);
  EXPECT_EQ(count("coach_turn_failed"), 0) << "an ending is no failed turn";
}

TEST_F(CoachDriverProgramTest, aModelThatWasNotChosenIsNeverTaken) {
  const struct { Environment more; std::string words; } cases[] = {
      {{{"AMBITCAP_MODEL_BACKEND", "cloud"}},
       "AMBITCAP_MODEL_BACKEND=\"cloud\" is not a recognized backend (expected \"ollama\", \"openrouter\" or \"proxy\").\n"},
      {{{"AMBITCAP_MODEL_BACKEND", "openrouter"}},
       "AMBITCAP_MODEL_BACKEND=openrouter but OPENROUTER_API_KEY is not set — refusing to start rather than silently falling back to the "
       "local model.\n"},
      {{{"AMBITCAP_MODEL_BACKEND", "proxy"}}, "CoachDriver can't start: AMBITCAP_PROXY_URL is not set\n"},
  };
  for (const auto& c : cases) {
    more = c.more;
    std::filesystem::remove(folder.path() / "driver.log");
    auto driver = launchDriver();
    EXPECT_EQ(driver.wait(10), 78);
    EXPECT_EQ(driverLog(), c.words);
    EXPECT_NE(halvo({"status"}).find(c.more.at("AMBITCAP_MODEL_BACKEND") == "proxy" ? "coach:     proxy (NOT CONFIGURED)\n"
                                                                                    : "coach:     " + c.words),
              std::string::npos);
  }
}

TEST_F(CoachDriverProgramTest, aRemoteCoachThatBreaksOffIsReplacedAndDisclosed) {
  const std::string key = "sk-or-v1-0123456789abcdef0123456789abcdef";
  std::atomic<int> chats = 0;
  const auto isStreamed = [](const std::string& body) { return body.find(R"("stream":true)") != std::string::npos; };
  test::RemoteService service([&](const auto& request, auto& answer) {
    if (request.method != "POST") return answer.json(500, "{}");
    if (!isStreamed(request.body)) return answer.json(200, test::RemoteService::reply(R"({"summary_for_coach":"","should_check_in":false})"));
    if (++chats == 1) {
      answer.beginStream();
      answer.event(test::RemoteService::piece("Hello from afar."));
      for (const auto& payload : test::RemoteService::ending()) answer.event(payload);
      return answer.done();
    }
    answer.beginStream();
    answer.event(test::RemoteService::piece("Hel"));
  });
  modelURL = startModel();
  more = {{"AMBITCAP_MODEL_BACKEND", "openrouter"},
          {"OPENROUTER_API_KEY", key},
          {"AMBITCAP_MODEL_ENDPOINT", service.baseURL()},
          {"SSL_CERT_FILE", service.certificateFile().string()}};
  auto driver = startDriver();
  EXPECT_NE(halvo({"say", "hello", "--wait", "30"}).find("Lark      Hello from afar.\n"), std::string::npos) << driverLog();
  const auto answer = halvo({"say", "and again", "--wait", "30"});
  EXPECT_NE(answer.find(" [answered by the local model — the usual model was unreachable]\n"), std::string::npos) << answer << driverLog();
  EXPECT_EQ(answer.find("Hel "), std::string::npos) << answer;
  EXPECT_EQ(readFile(root / "io-layer/coach-stream.jsonl").find("Hello from afar"), std::string::npos);

  std::vector<std::string> sessions;
  for (const auto& request : service.requests())
    if (const auto body = JSONValue::parse(request.body); body && isStreamed(request.body)) sessions.push_back(*body->find("session_id")->stringValue());
  ASSERT_GE(sessions.size(), 2u);
  EXPECT_EQ(sessions[0].size(), 64u);
  EXPECT_EQ(sessions[0], sessions[1]) << "one conversation";
  const auto log = driverLog();
  EXPECT_NE(log.find("layer3: the coach runs on openrouter (deepseek/deepseek-v4-flash-0731, reasoning=low, provider=unpinned), "
                     "fallback=local (gemma4:12b-it-qat)\n"),
            std::string::npos);
  EXPECT_NE(log.find("provider pricing: COMMITTED SNAPSHOT (offline floor)"), std::string::npos) << log;
  driver.signal(SIGTERM);
  EXPECT_EQ(driver.wait(2), 0);
  for (const auto& file : std::filesystem::recursive_directory_iterator(folder.path()))
    EXPECT_TRUE(!file.is_regular_file() || readFile(file.path()).find(key) == std::string::npos) << file.path();
}

}  // namespace
}  // namespace halvo
