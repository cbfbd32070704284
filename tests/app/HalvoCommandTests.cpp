// The command line as a person meets it.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "CaptureShared/EventLog/EventLogReader.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/Text.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Eventually.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {

class HalvoCommandTest : public testing::Test {
 protected:
  HalvoCommandTest() { std::filesystem::create_directory(root); }

  struct Outcome {
    int status = -1;
    std::string out, err;
  };
  Outcome run(const std::vector<std::string>& arguments, const std::string& dataRoot, const std::string& program = "halvo") {
    const auto open = [&](const char* name) {
      return FileHandle(::open((folder.path() / name).c_str(), O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0600));
    };
    const auto out = open("out"), err = open("err");
    Environment environment{{"HOME", folder.path().string()}, {"PATH", "/usr/bin:/bin"}, {"TZ", "America/New_York"}};
    if (!dataRoot.empty()) environment["AMBITCAP_DATA_ROOT"] = dataRoot;
    const bool isPath = program.find('/') != std::string::npos;
    test::ChildProcess command(isPath ? program : std::string(HALVO_BIN) + "/" + program, arguments, environment,
                               {{.ours = out.fd(), .childs = 1}, {.ours = err.fd(), .childs = 2}});
    const auto status = command.wait(20);
    return {status.value_or(-1), readFile(folder.path() / "out"), readFile(folder.path() / "err")};
  }
  std::vector<EventLogEvent> rows() const { return EventLogReader::read(root / "io-layer/events.jsonl"); }
  std::string task() const { return readFile(folder.path() / ".ambitude/current-task.txt"); }

  test::TemporaryFolder folder;
  std::filesystem::path root = folder.path() / "data";
};

TEST_F(HalvoCommandTest, declareBreakClear) {
  EXPECT_EQ(run({"declare", " write\nthe essay ", "--until", "5:00pm", "--why", " "}, root).out, "declared: write\nthe essay\n");
  EXPECT_NE(task().find("Task: write the essay\n"), std::string::npos) << task();
  EXPECT_NE(task().find("Estimate: until 5:00pm\n"), std::string::npos);
  EXPECT_EQ(rows().at(0).detail.find("why")->isNull(), true) << "a blank reason is none";
  const auto status = run({"status"}, root);
  EXPECT_EQ(status.status, 0);
  for (const auto* line : {"coach:     local llama-server (gemma4:12b-it-qat)\n", "intention: write the essay\n", "estimate:  until 5:00pm\n",
                           "quiet:     not quiet\n", "health:    Off (not installed)\n",
                           "sampled:   never\n", "judged:    never\n", "gate:      never\n", "Lark:      never\n"})
    EXPECT_NE(status.out.find(line), std::string::npos) << line << status.out;
  EXPECT_EQ(run({"break", "--until", "3:15pm"}, root).out, "declared: Break until 3:15pm\n");
  EXPECT_NE(task().find("Task: Break\n"), std::string::npos);
  EXPECT_EQ(run({"clear"}, root).out, "cleared: nothing is declared now\n");
  EXPECT_NE(run({"status"}, root).out.find("intention: none declared\n"), std::string::npos);
  EXPECT_EQ(run({"declare", "  "}, root).status, 1);
  ASSERT_EQ(rows().size(), 3u);
  EXPECT_EQ(*rows()[0].detail.at({"_producer", "process"}), JSONValue("halvo"));
  struct stat info {};
  ASSERT_EQ(::stat((root / "io-layer/events.jsonl").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600u);
}

TEST_F(HalvoCommandTest, sayAndLog) {
  EXPECT_EQ(run({"say", "hello \x1b[2J"}, root).out, "sent\n");
  EXPECT_EQ(*rows().at(0).text("text"), "hello \x1b[2J") << "kept as it was said";
  const auto log = run({"log", "-n", "1"}, root);
  EXPECT_TRUE(log.out.ends_with("  you       hello  [2J\n")) << log.out;
  const auto waiting = run({"say", "anyone?", "--wait", "0.3"}, root);
  EXPECT_EQ(waiting.status, 1);
  EXPECT_EQ(waiting.err, "no answer yet; it will show in: halvo chat\n");
  EXPECT_EQ(run({"say", " "}, root).status, 1);
  EXPECT_EQ(rows().size(), 2u);
  EXPECT_NE(run({}, root).status, 0);
  EXPECT_NE(run({"conquer"}, root).status, 0);
}

TEST_F(HalvoCommandTest, aFollowedLogEndsWithItsReader) {
  run({"say", "one"}, root);
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  const Environment environment{{"HOME", folder.path().string()}, {"AMBITCAP_DATA_ROOT", root.string()}};
  test::ChildProcess follower(std::string(HALVO_BIN) + "/halvo", {"log", "--follow"}, environment, {{.ours = ends[1], .childs = 1}});
  ::close(ends[1]);
  char first = 0;
  ASSERT_EQ(::read(ends[0], &first, 1), 1);
  ::close(ends[0]);
  run({"say", "two"}, root);
  EXPECT_EQ(follower.wait(5), 0);
}

TEST_F(HalvoCommandTest, withoutAPlaceToWriteToItSaysSoInOneLine) {
  const std::vector<std::vector<std::string>> writes{{"declare", "x"}, {"break"}, {"clear"}, {"say", "x"}, {"chat"}};
  const auto shut = folder.path() / "shut";
  std::filesystem::create_directories(shut / "io-layer" / "events.jsonl");
  const auto locked = folder.path() / "locked";
  std::filesystem::create_directory(locked);
  ::chmod(locked.c_str(), 0555);
  // Root may write anywhere, so that case needs somebody else.
  const bool isRoot = ::geteuid() == 0;
  const struct { const char* name; std::string root; } cases[] = {
      {"none configured", ""},
      {"not there", (folder.path() / "gone").string()},
      {"the log is a folder", shut.string()},
      {"read-only", locked.string()}};
  for (const auto& c : cases)
    for (const auto& words : writes) {
      SCOPED_TRACE(std::string(c.name) + ": " + words[0]);
      if (words[0] == "chat" && (c.root == shut || c.root == locked)) continue;
      auto program = std::string("halvo");
      auto arguments = words;
      if (c.root == locked && isRoot) {
        program = "/usr/bin/setpriv";
        arguments.insert(arguments.begin(), {"--reuid=65534", "--clear-groups", "--regid=65534", std::string(HALVO_BIN) + "/halvo"});
        ::chmod(folder.path().c_str(), 0755);
      }
      const auto outcome = run(arguments, c.root, program);
      EXPECT_EQ(outcome.status, 1);
      const auto lines = Text::split(outcome.err, '\n');
      EXPECT_EQ(std::count_if(lines.begin(), lines.end(), [](auto line) { return !line.empty() && !line.starts_with("warning: "); }), 1)
          << outcome.err;
      EXPECT_EQ(outcome.out, "");
    }
  EXPECT_FALSE(std::filesystem::exists(folder.path() / "gone"));
  EXPECT_FALSE(std::filesystem::exists(folder.path() / ".ambitude/current-task.txt")) << "no copy without the row";
  EXPECT_TRUE(std::filesystem::is_empty(locked));
  const auto status = run({"status"}, "");
  EXPECT_EQ(status.status, 1);
  EXPECT_NE(status.out.find("\nhealth:    Recording nothing"), std::string::npos) << status.out;
  ::chmod(locked.c_str(), 0755);
}

TEST_F(HalvoCommandTest, aMalformedConfigIsToldAndLeftAsItIs) {
  const std::filesystem::path file = "Library/Application Support/AmbitCapture/config.json";
  const std::string broken = "{\"env\": {\"AMBITCAP_LAYER3\": ";
  folder.write(file, broken);
  const auto told = run({"status"}, root);
  EXPECT_EQ(told.status, 0);
  EXPECT_NE(told.out.find("could not be read as settings; its values are not in force\n"), std::string::npos) << told.out;
  EXPECT_EQ(run({"declare", "x"}, root).status, 0);
  EXPECT_EQ(readFile(folder.path() / file), broken);
  folder.write(file, R"({"env": {"AMBITCAP_LAYER\u001b[2J": "1"}})");
  EXPECT_NE(run({"status"}, root).out.find("config:    AMBITCAP_LAYER [2J is not a setting and was ignored\n"), std::string::npos);
}

}  // namespace
}  // namespace halvo
