// The real program, as somebody in a terminal runs it.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include "AmbitudeAppKit/Entry/AppEntryPoint.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "tests/CaptureShared/DataRoot/Home.h"
#include "tests/support/ChildProcess.h"

namespace halvo {
namespace {

namespace fs = std::filesystem;

struct Ran {
  std::optional<int> exitStatus;
  std::string output, error;
};

class StateDump : public ::testing::Test {
 protected:
  Ran run(const std::vector<std::string>& arguments) {
    const auto out = home_.path() / "out", error = home_.path() / "error";
    const auto open = [](const fs::path& file) { return FileHandle(::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600)); };
    const auto outHandle = open(out), errorHandle = open(error);
    home_.set("TZ", "America/New_York");
    test::ChildProcess program(HALVO_BIN "/AmbitudeApp", arguments, processEnvironment(),
                               {{.ours = outHandle.fd(), .childs = STDOUT_FILENO}, {.ours = errorHandle.fd(), .childs = STDERR_FILENO}});
    const auto exitStatus = program.wait(20);
    return {exitStatus, readFile(out), readFile(error)};
  }
  void expectDump(const std::vector<std::string>& arguments, const std::string& text) {
    const auto ran = run(arguments);
    EXPECT_EQ(ran.exitStatus, 0);
    EXPECT_EQ(ran.output, text);
    EXPECT_EQ(ran.error, "");
  }

  test::Home home_;
};

constexpr const char* nothing =
    "--- current intention ---\n(no intention set)\n--- recent check-ins (newest first) ---\n(none)\n";

TEST_F(StateDump, withoutADataRootItStillPrintsItsSections) {
  home_.write(".ambitude/current-task.txt", "Task: left over from another root\n");
  expectDump({"--dump"}, std::string("data volume mounted: false\n") + nothing);
  home_.writeConfig(R"({"dataRoot":"~/away","env":{}})");
  expectDump({"--dump"}, std::string("data volume mounted: false\n") + nothing);
  EXPECT_FALSE(fs::exists(home_.path() / "away")) << "a dump makes nothing";
}

TEST_F(StateDump, anEmptyRootAndOneThatDoesNotRead) {
  home_.writeConfig(R"({"dataRoot":"~/root"})");
  fs::create_directory(home_.path() / "root");
  expectDump({"--dump"}, std::string("data volume mounted: true\n") + nothing);
  fs::create_directories(home_.path() / "root/checker-log.jsonl");
  home_.write("root/io-layer/events.jsonl", "\xff\xfe garbage\n");
  home_.write(".ambitude/current-task.txt", "Declared: now\n");
  expectDump({"--dump"}, std::string("data volume mounted: true\n") + nothing);
  EXPECT_EQ(std::distance(fs::directory_iterator(home_.path() / "root"), fs::directory_iterator()), 2);
}

TEST_F(StateDump, theDeclarationAndTheLastEightJudgmentsNewestFirst) {
  home_.writeConfig(R"({"dataRoot":"~/root","env":{"AMBITCHECK_TASK_FILE":"/ignored"}})");
  home_.write("root/io-layer/events.jsonl",
              R"({"ts_ms":1772651700000,"kind":"event","type":"task_declared","detail":{"task":"essay","until":"3:30pm"},"source":"s"})"
              "\n");
  std::string log = std::string(300'000, 'x') + "\n";  // what lies before the last 256 KiB is not read
  for (int i = 0; i < 4; ++i) log += R"({"at":"2026-03-04T10:00:00Z","state":"ON_TASK"})" "\n";
  log +=
      R"({"at":"2026-03-04T09:15:00.250-05:00","state":"NOT_ALIGNED","frontmost_app":"Firefox","coach_move":"ask","coach_message":"Back to it?"})"
      "\n"
      R"({"at":"2026-03-04T14:20:00Z","state":"ON_TASK","coach_move":"wait"})"
      "\n"
      "broken\n"
      R"({"at":"yesterday at nine","state":"IDLE","frontmost_app":"Editor"})"
      "\n"
      R"({"at":"2026-07-04T09:00:00+0200","coach_message":"“so”"})"
      "\n"
      R"({"at":"2026-03-04T23:59:59.999-05:00","state":"NO_TASK"})"
      "\n"
      R"({"at":"2026-03-04T09:15:00Z","state":"half a line"})";
  home_.write("root/checker-log.jsonl", log);
  const std::string want =
      "data volume mounted: true\n"
      "--- current intention ---\n"
      "task:   essay\n"
      "declared: 2026-03-04 2:15pm ET\n"
      "estimate: until 3:30pm\n"
      "why:    -\n"
      "--- recent check-ins (newest first) ---\n"
      "03-04 23:59  NO_TASK  [-]\n"
      "07-04 03:00  -  [-] · ““so””\n"
      "yesterday at nine  IDLE  [Editor]\n"
      "03-04 09:20  ON_TASK  [-] · wait\n"
      "03-04 09:15  NOT_ALIGNED  [Firefox] · ask · “Back to it?”\n"
      "03-04 05:00  ON_TASK  [-]\n"
      "03-04 05:00  ON_TASK  [-]\n"
      "03-04 05:00  ON_TASK  [-]\n";
  expectDump({"--dump"}, want);
  expectDump({"--render-ui", "file", "--dump"}, want);
}

TEST_F(StateDump, theOtherModes) {
  const auto refused = run({"x", "--render-ui"});
  EXPECT_EQ(refused.exitStatus, 0);
  EXPECT_EQ(refused.output, "--render-ui is a debug-only tool that is not in this build.\n");
  for (const auto& arguments : std::vector<std::vector<std::string>>{{}, {"--dumps"}, {"dump"}, {"--render-ui=x"}})
    EXPECT_EQ(AppEntryPoint::mode(arguments), AppEntryPoint::Mode::application);

  // A root whose folders can't be made ends the application with a word, not with a crash.
  home_.set("AMBITCAP_DATA_ROOT", "/proc/self");
  const auto failed = run({});
  EXPECT_EQ(failed.exitStatus, 0);
  EXPECT_NE(failed.error, "");
}

}  // namespace
}  // namespace halvo
