#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include <fmt/format.h>

#include "CaptureShared/EventLog/ClassifierLogTail.h"
#include "CaptureShared/EventLog/RetainedCoachEvents.h"
#include "CaptureShared/EventLog/RetainedDriverLog.h"
#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

std::string eventLine(std::int64_t tsMs, const std::string& type) {
  return fmt::format(R"({{"ts_ms":{},"kind":"event","type":"{}","detail":{{}},"source":"s"}})", tsMs, type) + "\n";
}

class DriverLog : public ::testing::Test {
 protected:
  void events(const std::string& text) const { folder_.write("events", text); }
  void addEvents(const std::string& text) const { std::ofstream(folder_.path() / "events", std::ios::app) << text; }
  /// What a refresh answers: the events' types and the ticks' states in order, or which file could not be read. Its lines go to `lines_`.
  std::string refresh() {
    lines_.clear();
    return match(
        log_.refresh(),
        [](const RetainedDriverLog::Ready& ready) {
          std::string text;
          for (const auto& event : ready.events) text += event.type;
          text += "/";
          for (const auto& tick : ready.ticks) text += tick.state.value_or("-");
          return text;
        },
        [](const RetainedDriverLog::EventsUnreadable&) { return std::string("events unreadable"); },
        [](const RetainedDriverLog::TicksUnreadable&) { return std::string("ticks unreadable"); });
  }

  test::TemporaryFolder folder_;
  Lines lines_;
  RetainedDriverLog log_{folder_.path() / "events", folder_.path() / "ticks", [this](const std::string& line) { lines_.push_back(line); }};
};

TEST_F(DriverLog, saysWhatBecameOfEachFile) {
  EXPECT_EQ(refresh(), "/");
  events(eventLine(1, "a") + "broken\n{}\n" + eventLine(3, "c"));
  folder_.write("ticks", "{\"at\":\"2026-03-04T09:15:00.000-05:00\",\"state\":\"x\"}\n");
  EXPECT_EQ(refresh(), "ac/x");
  EXPECT_EQ(lines_,
            Lines{"events: skipped 2 complete line(s) that did not decode (same as the full reader; counted here so it is not silent)"});
  EXPECT_EQ(refresh(), "ac/x");
  EXPECT_EQ(lines_, Lines{});
  addEvents(eventLine(2, "b") + eventLine(3, "d"));
  EXPECT_EQ(refresh(), "abcd/x");
  EXPECT_EQ(lines_, Lines{});
  EXPECT_EQ(log_.events().skippedLines, 2);

  events(eventLine(7, "n"));
  EXPECT_EQ(refresh(), "n/x");
  EXPECT_EQ(lines_, Lines{"events: re-read in full (the file was rotated, truncated or replaced): 4 records before, 1 now"});
  fs::remove(folder_.path() / "events");
  EXPECT_EQ(refresh(), "/x");
  EXPECT_EQ(lines_, Lines{"events: the file is gone -- dropped 1 retained records"});
  EXPECT_EQ(refresh(), "/x");
  EXPECT_EQ(lines_, Lines{});

  events(eventLine(8, "o"));
  EXPECT_EQ(refresh(), "o/x");
  fs::remove(folder_.path() / "events");
  fs::create_directory(folder_.path() / "events");  // there, and not a file that can be read
  EXPECT_EQ(refresh(), "events unreadable");
  EXPECT_EQ(refresh(), "events unreadable");
  fs::remove(folder_.path() / "events");
  events(eventLine(8, "o") + eventLine(9, "p"));
  EXPECT_EQ(refresh(), "op/x");
  EXPECT_EQ(lines_, Lines{"events: re-read in full (after a failed read): 1 records before, 2 now"});
}

TEST_F(DriverLog, ordersTicksByTheInstantThroughTheHourThatComesTwice) {
  folder_.write("ticks",
                "{\"at\":\"2026-11-01T01:59:00.000-04:00\",\"state\":\"1\"}\n{\"at\":\"2026-11-01T01:01:00.000-05:00\",\"state\":\"2\"}\n");
  EXPECT_EQ(refresh(), "/12");
}

TEST(DeltaFold, sortsStablyHoweverTheRowsCome) {
  std::mt19937 random(9);
  using Pair = std::pair<int, int>;
  for (int round = 0; round < 200; ++round) {
    DeltaFold<Pair> fold([](const Pair& a, const Pair& b) { return a.first < b.first; });
    std::vector<Pair> all;
    int serial = 0;
    for (int batch = 0; batch < 6; ++batch) {
      std::vector<Pair> rows;
      for (auto size = random() % 6; size > 0; --size)
        rows.emplace_back(static_cast<int>(random() % 5) + (round % 2 ? batch * 2 : 0), serial++);
      if (random() % 7 == 0) {
        all = rows;
        fold.apply(Reset<Pair>{rows});
      } else {
        all.insert(all.end(), rows.begin(), rows.end());
        fold.apply(Appended<Pair>{rows});
      }
      auto sorted = all;
      std::stable_sort(sorted.begin(), sorted.end(), [](const Pair& a, const Pair& b) { return a.first < b.first; });
      EXPECT_EQ(fold.committed(), all);
      EXPECT_EQ(fold.sorted(), sorted);
    }
  }
}

TEST(RetainedCoachEvents, keepsARoleOfAMessageAndOnlyWhatTheChatNeeds) {
  const JSONObject detail{{"role", "user"}, {"text", "private"}};
  auto kept = [&](const char* type) { return RetainedCoachEvents::compact({.tsMs = 1, .type = type, .detail = detail}); };
  EXPECT_EQ(kept("app_chat_message")->detail, JSONValue(JSONObject{{"role", "user"}}));
  EXPECT_EQ(RetainedCoachEvents::compact({.type = "app_chat_message"})->detail, JSONValue(JSONObject{{"role", nullptr}}));
  EXPECT_EQ(kept("onboarding_v3_anything")->detail, JSONValue(detail));
  EXPECT_TRUE(kept("task_declared") && kept("coach_battery_pause_notice_dismissed") && kept("meds_ask_offered"));
  EXPECT_FALSE(kept("ui_opened") || kept("coach_decision") || kept("task_cleared") || kept("onboarding_v3"));
}

const ClassifierLogTail::Result& valueOf(const LogFileRead::Outcome<ClassifierLogTail::Result>& outcome) {
  return std::get<LogFileRead::Value<ClassifierLogTail::Result>>(outcome).value;
}

TEST(ClassifierLogTail, readsBackwardInAnyPiecesWhatAPlainReadFinds) {
  std::mt19937 random(13);
  const test::TemporaryFolder folder;
  const auto file = folder.path() / "ticks";
  for (int round = 0; round < 150; ++round) {
    std::string text;
    std::vector<ClassifierLogTail::Row> rows;
    const std::int64_t startMs = 1'700'000'000'000;
    const auto count = static_cast<int>(random() % 20);
    for (int i = 0; i < count; ++i) {
      switch (random() % 6) {
        case 0: text += "\n"; break;
        case 1: text += "{\"stump\n"; break;
        default:
          rows.push_back({ISO8601::utcMillis(startMs + i * 1000), std::string("ON_TASK")});
          text += fmt::format("{{\"at\":\"{}\",\"state\":\"ON_TASK\",\"pad\":\"{}\"}}\n", rows.back().at, std::string(random() % 40, 'p'));
      }
    }
    if (random() % 3 == 0) text += "{\"at\":\"a line without its newline\"}";
    folder.write("ticks", text);
    for (const std::size_t chunk : {1u, 2u, 7u, 64u, 262'144u}) {
      const auto whole = ClassifierLogTail::read({.file = file, .chunkBytes = chunk});
      EXPECT_EQ(valueOf(whole).ticks, rows);
      EXPECT_EQ(valueOf(whole).bytesRead, static_cast<std::int64_t>(text.size()));
      EXPECT_FALSE(valueOf(whole).truncated);

      const auto sinceMs = startMs + static_cast<std::int64_t>(random() % 20) * 1000;
      auto newer = rows;
      std::erase_if(newer, [&](const auto& row) { return *ISO8601::parse(row.at) < sinceMs; });
      EXPECT_EQ(valueOf(ClassifierLogTail::read({.file = file, .sinceMs = sinceMs, .chunkBytes = chunk})).ticks, newer);

      // However small the bound, what it finds is the tail of what there is, and it says when more was left.
      const auto bound = random() % (text.size() + 2);
      const auto bounded = ClassifierLogTail::read({.file = file, .chunkBytes = chunk, .maxBytes = bound});
      const auto& part = valueOf(bounded).ticks;
      ASSERT_LE(part.size(), rows.size());
      EXPECT_TRUE(std::equal(part.rbegin(), part.rend(), rows.rbegin()));
      EXPECT_EQ(valueOf(bounded).truncated, bound < text.size());
      EXPECT_LE(valueOf(bounded).bytesRead, static_cast<std::int64_t>(bound));
    }
  }
  EXPECT_TRUE(std::holds_alternative<LogFileRead::Absent>(ClassifierLogTail::read({.file = folder.path() / "none"})));
  EXPECT_TRUE(std::holds_alternative<LogFileRead::Unreadable>(ClassifierLogTail::read({.file = folder.path()})));

  folder.write("ticks", "first\nsecond\n\nthird\nhalf");
  EXPECT_EQ(ClassifierLogTail::lastLines(file, 1000), (Lines{"first", "second", "third"}));
  EXPECT_EQ(ClassifierLogTail::lastLines(file, 15), Lines{"third"});
  EXPECT_EQ(ClassifierLogTail::lastLines(file, 3), Lines{});
}

}  // namespace
}  // namespace halvo
