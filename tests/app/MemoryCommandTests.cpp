// What a person is shown of the memory, and how it is forgotten.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "AmbitudeCore/Memory/MemoryStore.h"
#include "AmbitudeCore/Memory/MemoryWipeLog.h"
#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {

struct MemoryCommandTest : testing::Test {
  MemoryCommandTest() { std::filesystem::create_directory(root); }
  FileHandle open(const char* name) const { return FileHandle(::open((folder.path() / name).c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600)); }
  int run(std::vector<std::string> words, const std::string& input = "") {
    folder.write("in", input);
    folder.write("out", "");
    const auto in = open("in"), out = open("out");
    words.insert(words.begin(), "memory");
    const Environment environment{
        {"HOME", folder.path()}, {"PATH", "/usr/bin:/bin"}, {"TZ", "America/New_York"}, {"AMBITCAP_DATA_ROOT", root}};
    test::ChildProcess command(std::string(HALVO_BIN) + "/halvo", words, environment, {{in.fd(), 0}, {out.fd(), 1}, {out.fd(), 2}});
    const auto status = command.wait(20).value_or(-1);
    said = readFile(folder.path() / "out");
    return status;
  }
  std::optional<std::int64_t> wipe() const { return MemoryWipeLog::latestAtMs(MemoryWipeLog::defaultURL(root)); }

  test::TemporaryFolder folder;
  std::filesystem::path root = folder.path() / "data";
  std::string said;
};

TEST_F(MemoryCommandTest, showsWhereEachCameFrom) {
  EXPECT_EQ(run({}), 0);
  EXPECT_EQ(said, "nothing is remembered yet\n");
  const auto ms = Calendar::named("America/New_York").instant(2026, 3, 4, 9, 15);
  MemoryStore::writeDigest(
      {.periodStartTsMs = ms, .periodEndTsMs = ms + 1, .summary = "s", .facts = {{.text = "works nights"}}, .lessons = {"l"}}, root);
  MemoryStore::writeStanding(
      {.regeneratedAtTsMs = ms,
       .digestCount = 1,
       .threads = {{.name = "es\x1b[31msay", .status = MemoryThreadStatus::dropped, .notes = "given up"}},
       .lessons = {"l", "merged"},
       .facts = {{.text = "works nights", .provenance = MemoryFactProvenance::asserted, .sourceEventTsMs = {ms}}, {.text = "likes tea"}}},
      root);
  EXPECT_EQ(run({}), 0);
  EXPECT_EQ(said,
            "as of Mar 4, 9:15, from 1 period(s)\n\nthreads:\n  es [31msay [dropped]: given up\n\nfacts:\n"
            "  works nights  (you said so, Mar 4, 9:15)\n  likes tea  (concluded, not said; no digest holds it)\n\nlessons:\n"
            "  l  (from the period of Mar 4, 9:15)\n  merged  (drawn together from several periods)\n");
  folder.write("data/memory/period-digests/9.json", "{");
  EXPECT_EQ(run({}), 1);
  EXPECT_NE(said.find("9.json is damaged"), std::string::npos);
}

TEST_F(MemoryCommandTest, forgetsWhenMeant) {
  MemoryStore::writeStanding({.regeneratedAtTsMs = 1}, root);
  for (const auto* answer : {"", "y\n", "forget it\n"}) {
    EXPECT_EQ(run({"forget"}, answer), 1);
    EXPECT_NE(said.find("No file is deleted"), std::string::npos);
    EXPECT_FALSE(wipe()) << answer;
  }
  EXPECT_EQ(run({"forget"}, "forget\n"), 0);
  ASSERT_TRUE(wipe());
  EXPECT_EQ(run({}), 0);
  EXPECT_NE(said.find(" is forgotten\nnothing is remembered yet\n"), std::string::npos) << said;
  EXPECT_TRUE(std::filesystem::exists(MemoryStore::standingURL(root)));
}

}  // namespace
}  // namespace halvo
