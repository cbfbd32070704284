// What a person is shown of the recordings' age, and how they are deleted.

#include <fcntl.h>
#include <gtest/gtest.h>

#include "CaptureShared/Foundation/FileHandle.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {

TEST(RetentionCommand, showsAsksAndDeletes) {
  const test::TemporaryFolder folder;
  std::string said;
  auto runAs = [&](const std::string& program, const std::vector<std::string>& words, const std::string& input = "") {
    folder.write("in", input);
    folder.write("out", "");
    const FileHandle in = FileHandle::openForRead(folder.path() / "in"), out(::open((folder.path() / "out").c_str(), O_RDWR | O_CLOEXEC));
    const Environment environment{{"HOME", folder.path()}, {"TZ", "Etc/UTC"}, {"AMBITCAP_DATA_ROOT", folder.path() / "data"}};
    test::ChildProcess command(program, words, environment, {{in.fd(), 0}, {out.fd(), 1}, {out.fd(), 2}});
    const auto status = command.wait(20).value_or(-1);
    said = readFile(folder.path() / "out");
    return status;
  };
  const auto halvo = std::string(HALVO_BIN) + "/halvo";
  auto run = [&](std::vector<std::string> words, const std::string& input = "") {
    words.insert(words.begin(), "retention");
    return runAs(halvo, words, input);
  };
  const auto video = folder.path() / "data/video/display-0";
  folder.write("data/video/display-0/2020-01-02T03.mkv", std::string(2'000'000, 'x'));
  folder.write("data/video/display-0/2020-01-02T04.mkv", "");
  std::filesystem::last_write_time(video / "2020-01-02T03.mkv", std::filesystem::file_time_type::clock::now() - std::chrono::hours(9'000));
  EXPECT_EQ(run({}), 0);
  EXPECT_EQ(said, "recordings are deleted after: never; on restart: off\nRetention is off, so nothing was deleted.\n");
  EXPECT_EQ(run({"set", "soon"}), 1);
  EXPECT_EQ(run({"set", "7"}), 0);
  const std::string table =
      "recordings are deleted after: 1 week; on restart: off\ndisplay-0\n"
      "  2020-01-02T03.mkv               2 MB  delete           over 1 week old\n"
      "  2020-01-02T04.mkv               0 MB  keptRecent       not old enough, or written to since\n"
      "to delete: 1 file(s), 2 MB; to keep: 1\n";
  for (const auto* answer : {"", "y\n"}) EXPECT_EQ(run({"--apply"}, answer), 1);
  EXPECT_EQ(run({}), 0);
  EXPECT_EQ(said, table);
  // A machine without an identity, where one may be made.
  const auto nameless = [](const std::string& then) {
    return std::vector<std::string>{"-rm", "sh", "-c", "mount --bind /dev/null /etc/machine-id" + then};
  };
  if (runAs("/usr/bin/unshare", nameless("")) == 0) {
    EXPECT_EQ(runAs("/usr/bin/unshare", nameless(" && exec " + halvo + " retention --apply"), "delete\n"), 1);
    EXPECT_NE(said.find("This Mac is protected from purging recorded data, so nothing was deleted."), std::string::npos) << said;
    EXPECT_TRUE(std::filesystem::exists(video / "2020-01-02T03.mkv"));
  }
  EXPECT_EQ(run({"--apply"}, "delete\n"), 0);
  EXPECT_EQ(said, table + "Type \"delete\" to go on: deleted: 1 file(s), 2 MB freed\n");
  EXPECT_FALSE(std::filesystem::exists(video / "2020-01-02T03.mkv"));
  const auto settings = "Library/Application Support/AmbitCapture/retention.json";
  folder.write(settings, R"({"lastRestartSweepBootMs": 1})");
  EXPECT_EQ(run({"set", "off", "--on-restart", "on"}), 0);
  EXPECT_NE(said.find("after: never; on restart: on"), std::string::npos) << said;
  EXPECT_NE(said.find("the next sweep deletes what was recorded before the last start too"), std::string::npos) << said;
  folder.write(settings, "{");
  EXPECT_EQ(run({"set", "7"}), 1);
  EXPECT_EQ(readFile(folder.path() / settings), "{");
}

}  // namespace
}  // namespace halvo
