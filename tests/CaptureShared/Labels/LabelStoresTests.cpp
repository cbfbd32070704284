// What a person said of past moments is kept for good.

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "CaptureShared/Labels/AnsweredMoments.h"
#include "CaptureShared/Labels/LabelHistory.h"
#include "CaptureShared/Labels/LabelVocabulary.h"
#include "CaptureShared/Labels/LabelsWriter.h"
#include "tests/support/TemporaryFolder.h"

static int syncs = 0;
// What the database calls in place of the system's own.
extern "C" int fdatasync(int fd) { return ++syncs, static_cast<int>(::syscall(SYS_fdatasync, fd)); }
extern "C" int fsync(int fd) { return ++syncs, static_cast<int>(::syscall(SYS_fsync, fd)); }

namespace halvo {
namespace {

using LabelsWriter::LabelsWriterError;

struct LabelStoresTest : testing::Test {
  void write(std::int64_t atMs, const std::string& label, std::optional<bool> blind = {}) {
    LabelsWriter::insert({.label = label, .tickTsMs = atMs, .asOfMs = 1'795'600'000'000, .source = "in_app_ramp", .answeredBlind = blind}, newYork, file);
  }
  std::optional<LabelsWriterError::Kind> failure(const std::string& label) {
    try {
      write(1, label);
      return std::nullopt;
    } catch (const LabelsWriterError& error) {
      return error.kind();
    }
  }
  test::TemporaryFolder folder;
  std::filesystem::path file = folder.path() / "labels.sqlite";
  Calendar newYork = Calendar::named("America/New_York");
};

TEST_F(LabelStoresTest, anOldDatabaseIsTakenOver) {
  {
    SQLiteDB old(file);
    old.run("CREATE TABLE labels (id INTEGER PRIMARY KEY AUTOINCREMENT, t0_ms INTEGER NOT NULL, t1_ms INTEGER NOT NULL, declared_task TEXT, "
            "label TEXT NOT NULL, notes TEXT, source_hour TEXT NOT NULL, created_at TEXT NOT NULL)");
    old.run("INSERT INTO labels (t0_ms, t1_ms, label, source_hour, created_at) VALUES (5, 5, 'break', 'x', 'then')");
  }
  EXPECT_THROW(AnsweredMoments::rampLabeledTickMs(file), AnsweredMoments::ReadError);
  LabelsWriter::insert({.vote = LabelsWriter::Vote::off, .declaredTask = "the essay", .tickTsMs = 1'795'590'000'000, .asOfMs = 0}, newYork, file);
  write(7, "ambiguous", true), write(7, "on_task", false);
  const auto rows = LabelHistory::read(file);
  ASSERT_EQ(rows.size(), 4u);
  EXPECT_FALSE(rows[0].source || rows[0].answeredBlind) << "an old row tells neither";
  EXPECT_EQ(rows[1].label + *rows[1].source + rows[1].createdAt, "off_taskin_app1970-01-01T00:00:00Z");
  EXPECT_TRUE(rows[2].superseded && !rows[3].superseded && *rows[2].answeredBlind && !*rows[3].answeredBlind);
  EXPECT_EQ(AnsweredMoments::rampLabeledTickMs(file), std::set<std::int64_t>{7});
  auto hour = SQLiteDB(file, SQLiteDB::Role::reader).prepare("SELECT source_hour, t0_ms = t1_ms, user_note IS NULL FROM labels WHERE id = 2");
  ASSERT_TRUE(hour.step());
  EXPECT_EQ(*hour.optionalText(0) + *hour.optionalText(1) + *hour.optionalText(2), "inapp:2026-11-25T0211");
}

TEST_F(LabelStoresTest, whatCantBeKeptIsToldAndAddsNothing) {
  write(1, "on_task");
  struct stat status {};
  ASSERT_EQ(::stat(file.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600u);
  EXPECT_EQ(failure("nap"), LabelsWriterError::Kind::stepFailed);
  EXPECT_EQ(LabelHistory::read(file).size(), 1u);
  folder.write("labels.sqlite", "this is no database, and long enough to be seen as none; it stays as it is whatever is tried with it");
  EXPECT_EQ(failure("on_task"), LabelsWriterError::Kind::openFailed);
  file = folder.path() / "gone/labels.sqlite";
  EXPECT_EQ(failure("on_task"), LabelsWriterError::Kind::openFailed);
  try {
    AnsweredMoments::rampLabeledTickMs(file);
    FAIL() << "a batch must not be drawn without the answered moments";
  } catch (const AnsweredMoments::ReadError& error) {
    EXPECT_STREQ(error.what(), "sqlite3_open_v2 failed");
  }
}

TEST_F(LabelStoresTest, processesThatBeginAtOnceLoseNothing) {
  constexpr int processes = 6;
  for (int round = 0; round < 40; ++round) {
    file = folder.path() / (std::to_string(round) + ".sqlite");
    std::vector<pid_t> children(processes);
    int start[2];
    ASSERT_EQ(::pipe(start), 0);
    for (auto& child : children)
      if (child = ::fork(); child == 0) {
        ::close(start[1]);
        if (::read(start[0], start, 1) != 0) ::_exit(9);  // nothing comes, until all are there
        ::_exit(failure("on_task").has_value());
      }
    ::close(start[0]), ::close(start[1]);
    for (const auto child : children) {
      int status = 0;
      ASSERT_EQ(::waitpid(child, &status, 0), child);
      EXPECT_EQ(status, 0);
    }
    EXPECT_EQ(LabelHistory::read(file).size(), std::size_t{processes});
  }
}

TEST_F(LabelStoresTest, aKeptAnswerIsOnTheDiskAndABusyDatabaseIsTold) {
  write(1, "on_task");
  SQLiteDB other(file);
  {
    auto reading = other.prepare("SELECT id FROM labels");
    ASSERT_TRUE(reading.step());
    write(2, "on_task");
    syncs = 0;
    write(3, "on_task");
    EXPECT_GT(syncs, 0);
  }
  other.run("PRAGMA journal_mode=DELETE");
  other.run("BEGIN IMMEDIATE");
  EXPECT_EQ(failure("on_task"), LabelsWriterError::Kind::stepFailed);
}

TEST(LabelVocabulary, tones) {
  using LabelVocabulary::Tone;
  const std::pair<const char*, Tone> cases[] = {{"on_task", Tone::aligned},      {"switching_tasks", Tone::caveat}, {"off_task", Tone::diverged},
                                                {"not_using_computer", Tone::away}, {"break", Tone::away},
                                                {"ambiguous", Tone::unknown},      {"x", Tone::unknown}};
  for (const auto& [stored, want] : cases) EXPECT_EQ(LabelVocabulary::tone(stored), want) << stored;
}

}  // namespace
}  // namespace halvo
