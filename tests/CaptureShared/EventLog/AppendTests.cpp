#include <gtest/gtest.h>

#include <thread>

#include <fmt/format.h>
#include <unistd.h>

#include "CaptureShared/EventLog/EventLogReader.h"
#include "CaptureShared/EventLog/EventLogWriter.h"
#include "CaptureShared/EventLog/JSONLAppend.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "tests/CaptureShared/DataRoot/Home.h"
#include "tests/support/SmallDisk.h"

namespace halvo {
namespace {

namespace fs = std::filesystem;
using Kind = JSONLAppendError::Kind;

/// The kind of failure, or "written".
std::string outcome(std::string_view row, const fs::path& file) {
  try {
    JSONLAppend::append(row, file);
    return "written";
  } catch (const JSONLAppendError& error) {
    return error.what();
  }
}

TEST(JSONLAppend, startsALineOfItsOwnWhateverTheFileEndsIn) {
  const test::TemporaryFolder folder;
  const std::pair<const char*, const char*> cases[] = {{"", "{\"n\":1}\n"},
                                                       {"{\"n\":0}\n", "{\"n\":0}\n{\"n\":1}\n"},
                                                       {"{\"n\":0}\n{\"stu", "{\"n\":0}\n{\"stu\n{\"n\":1}\n"},
                                                       {"x", "x\n{\"n\":1}\n"}};
  for (const auto& [before, after] : cases) {
    folder.write("log", before);
    JSONLAppend::append(R"({"n":1})", folder.path() / "log");
    EXPECT_EQ(readFile(folder.path() / "log"), after);
  }
  JSONLAppend::append("{}", folder.path() / "new");
  EXPECT_EQ(fs::status(folder.path() / "new").permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

TEST(JSONLAppend, makesOneFolderAndNeverADataRootThatIsAway) {
  test::Home home;
  const auto root = home.path() / "volume/root";
  const auto away = "could not open file for append: errno " + std::to_string(ENOENT);
  // The root is spelled in other ways too: a path with a slash at its end is the same folder.
  for (const auto& spelling : {root.string(), root.string() + "/", (home.path() / "volume/./root").string()}) {
    fs::create_directory(home.path() / "volume");
    home.set("AMBITCAP_DATA_ROOT", spelling);
    EXPECT_EQ(outcome("{}", DataPaths::checkerLog()), away) << spelling;
    EXPECT_EQ(outcome("{}", DataPaths::events()), away) << spelling;
    EXPECT_TRUE(fs::is_empty(home.path() / "volume"));
    fs::create_directory(root);
    EXPECT_EQ(outcome("{}", DataPaths::events()), "written") << spelling;
    EXPECT_EQ(fs::status(root / "io-layer").permissions(), fs::perms::owner_all);
    fs::remove_all(home.path() / "volume");
  }
  home.set("AMBITCAP_DATA_ROOT", {});
  fs::create_directories(home.supportDir());
  EXPECT_EQ(outcome("{}", DataPaths::checkerLog()), away);
  EXPECT_EQ(outcome("{}", home.path() / "two/levels/log"), away);
  EXPECT_EQ(outcome("{}\n{}", home.path() / "log"), "could not encode row as JSON");
  EXPECT_EQ(outcome("\"\xff\"", home.path() / "log"), "could not encode row as JSON");
  EXPECT_FALSE(fs::exists(home.path() / "log"));

  // Writers that find the folder missing together all get their row in.
  for (int round = 0; round < 50; ++round) {
    const auto folder = home.path() / fmt::format("together-{}", round);
    {
      std::vector<std::jthread> writers;
      for (int i = 0; i < 4; ++i) writers.emplace_back([&] { EXPECT_EQ(outcome("{}", folder / "log"), "written"); });
    }
    EXPECT_EQ(readFile(folder / "log"), "{}\n{}\n{}\n{}\n");
  }
}

TEST(JSONLAppend, onAFullDiskTheRowIsReportedAndTheLogStaysReadable) {
  const test::SmallDisk disk;
  ASSERT_TRUE(disk.isThere()) << "mounting a small disk takes root";
  const auto log = disk.path() / "log";
  JSONLAppend::append(R"({"n":1})", log);
  disk.fill(8192);
  const auto full = outcome('"' + std::string(30'000, 'x') + '"', log);
  EXPECT_TRUE(full.starts_with("short write: expected 30003 bytes, wrote ")) << full;
  EXPECT_NE(full, "short write: expected 30003 bytes, wrote 0") << "a part fits, and has to be told apart from nothing";
  // Nine bytes: there was no room left to end the stump either, so this row brings a newline to do it.
  EXPECT_EQ(outcome(R"({"n":2})", log), "short write: expected 9 bytes, wrote 0");
  fs::remove(disk.path() / "ballast");
  JSONLAppend::append(R"({"n":3})", log);
  const auto text = readFile(log);
  EXPECT_TRUE(text.starts_with("{\"n\":1}\n\"xxx"));
  EXPECT_TRUE(text.ends_with("x\n{\"n\":3}\n"));
}

TEST(EventLogWriter, addsWhoWroteItAndStopsAtTheFirstFailure) {
  test::Home home;
  const auto log = home.makeRoot() / "io-layer/events.jsonl";
  const EventLogEvent event{.tsMs = 1'700'000'000'123, .type = "ui_opened", .detail = JSONObject{{"a", "é\n"}, {"_producer", "forged"}}};
  EventLogWriter::append(event, log, "AmbitudeApp", "1.2");
  const auto rows = EventLogReader::read(log);
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(rows[0].tsMs, event.tsMs);
  EXPECT_EQ(rows[0].kind, "event");
  EXPECT_EQ(rows[0].source, "coach-core");
  EXPECT_EQ(*rows[0].text("a"), "é\n");
  EXPECT_EQ(*rows[0].detail.find("_producer"),
            JSONValue(JSONObject{{"pid", static_cast<std::int64_t>(::getpid())}, {"process", "AmbitudeApp"}, {"version", "1.2"}}));

  const EventLogEvent odd{.tsMs = 1, .type = "odd", .detail = JSONValue::Array{1}}, bad{.tsMs = 2, .type = "\xff"},
      never{.tsMs = 3, .type = "never"};
  try {
    EventLogWriter::append({odd, bad, never}, log);
    FAIL();
  } catch (const EventLogWriterError& error) {
    EXPECT_EQ(error.kind(), Kind::encodingFailed);
  }
  const auto after = EventLogReader::read(log);
  ASSERT_EQ(after.size(), 2u);
  EXPECT_EQ(after[1].type, "odd");
  EXPECT_EQ(after[1].detail.objectValue()->size(), 1u);
  EXPECT_EQ(*after[1].detail.at({"_producer", "process"}), JSONValue("AmbitudeCoach"));
}

}  // namespace
}  // namespace halvo
