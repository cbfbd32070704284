// `halvo quiet`, `corrections`, `notes` and `feedback` as a person meets them.

#include <fcntl.h>
#include <gtest/gtest.h>

#include "CaptureShared/EventLog/EventLogReader.h"
#include "CaptureShared/EventLog/EventLogWriter.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {

class TaughtCommandTest : public testing::Test {
 protected:
  TaughtCommandTest() { std::filesystem::create_directories(root / "io-layer"); }
  std::string run(const std::vector<std::string>& words, int wantStatus = 0) {
    const FileHandle out(::open((folder.path() / "out").c_str(), O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0600));
    test::ChildProcess command(std::string(HALVO_BIN) + "/halvo", words,
                               {{"HOME", folder.path().string()}, {"TZ", "America/New_York"}, {"AMBITCAP_DATA_ROOT", root.string()}},
                               {{.ours = out.fd(), .childs = 1}});
    EXPECT_EQ(command.wait(20), wantStatus) << words[0];
    return readFile(folder.path() / "out");
  }
  std::vector<EventLogEvent> rows() const { return EventLogReader::read(root / "io-layer/events.jsonl"); }
  void add(const EventLogEvent& row) const { EventLogWriter::append(row, root / "io-layer/events.jsonl", "test", "1"); }

  test::TemporaryFolder folder;
  std::filesystem::path root = folder.path() / "data";
};

TEST_F(TaughtCommandTest, quietAndOff) {
  EXPECT_EQ(run({"quiet"}), "not quiet\n");
  for (const auto& [word, minutes] : {std::pair{"30m", 30}, {"1h", 60}, {"3h", 180}}) {
    EXPECT_TRUE(run({"quiet", word}).starts_with("quiet until "));
    EXPECT_EQ(rows().back().detail.objectValue()->integer("quiet_until_ts_ms"), rows().back().tsMs + minutes * 60'000LL);
  }
  EXPECT_TRUE(run({"quiet", "today", "--reason", "exam"}).ends_with(" (exam)\n"));
  EXPECT_EQ(run({"quiet", "until-i-say"}), "quiet until you say\n");
  EXPECT_EQ(run({"quiet"}), "quiet until you say\n");
  EXPECT_EQ(run({"quiet", "off"}), "quiet is over\n");
  EXPECT_EQ(run({"quiet", "off"}), "not quiet\n");
  EXPECT_EQ(rows().size(), 6u);
  run({"quiet", "2m"}, 105);
}

TEST_F(TaughtCommandTest, correctionsNotesFeedback) {
  add({.tsMs = 1000, .type = "coach_correction_recorded", .detail = JSONObject{{"text", "no jokes"}}});
  EXPECT_TRUE(run({"corrections"}).starts_with("1000  no jokes  (standing, said ")) << "from the log";
  run({"corrections", "delete", "999"}, 1);
  EXPECT_EQ(run({"corrections", "delete", "1000"}), "deleted\n");
  EXPECT_TRUE(run({"corrections"}).starts_with("no corrections")) << "the log does not bring it back";

  EXPECT_EQ(run({"notes", "set", "gate", "not at night"}), "noted\n");
  EXPECT_EQ(run({"notes"}), "gate:       not at night\ncoach:      (none)\nclassifier: (none)\n");
  run({"notes", "set", "nobody", "x"}, 1);
  EXPECT_EQ(run({"notes", "set", "gate", " "}), "taken back\n");

  run({"feedback", "keep"}, 1);
  add({.tsMs = 2000, .type = "app_chat_message", .detail = JSONObject{{"role", "coach"}, {"text", "Still?"}}});
  EXPECT_EQ(run({"feedback", "fault", "--note", "curt"}), "kept\n");
  EXPECT_EQ(run({"feedback", "must-not", "Still", "--note", "why"}), "kept\n");
  EXPECT_TRUE(std::filesystem::exists(root / "coach-fixtures/turn-2000.json"));
  const auto shown = run({"feedback"});
  EXPECT_NE(shown.find("Lark      Still?\n"), std::string::npos);
  EXPECT_NE(shown.find("  fault: curt\n"), std::string::npos);
  EXPECT_NE(shown.find("  criterion must_not_contain \"Still\": why\n"), std::string::npos);
}

}  // namespace
}  // namespace halvo
