#include <gtest/gtest.h>

#include <algorithm>

#include "AmbitudeAppKit/Present/Conversation.h"
#include "AmbitudeAppKit/Present/NowPage.h"
#include "AmbitudeCore/Coach/AppChatEvents.h"
#include "AmbitudeCore/Folds/CoachCorrectionsLog.h"
#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/EventLog/EventLogWriter.h"
#include "CaptureShared/EventLog/JSONLAppend.h"
#include "tests/AmbitudeCore/Gate/GateScene.h"
#include "tests/support/InventedDay.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {

using GateScene::at, GateScene::calendar, GateScene::event, GateScene::said, GateScene::tick;
using Kind = Conversation::Entry::Kind;

class DayTest : public testing::Test {
 protected:
  DayTest() { std::filesystem::create_directories(root / "io-layer"); }
  void add(const EventLogEvent& row) const { EventLogWriter::append(row, DataPaths::events(root), "test", "1"); }
  test::TemporaryFolder folder;
  std::filesystem::path root = folder.path() / "data";
};

TEST_F(DayTest, theStoreFollowsAndFindsWhatIsOld) {
  add(event(at(9, 0, 0, 1), "user_quiet_requested", {{"quiet_until_ts_ms", at(9, 0, 0, 20)}}));
  for (int i = 0; i < 3'000; ++i) add(event(at(10, 0, 0, 1), "coach_decision", {{"filler", std::string(60, 'x')}}));
  add(said(at(9, 0), "user", "hi"));
  DayStore store(root, at(8, 0));
  EXPECT_TRUE(store.refresh(at(9, 1)));
  EXPECT_EQ(store.rows().events.size(), 1u) << "the past is left out";
  EXPECT_FALSE(store.refresh(at(9, 1)));
  JSONLAppend::append(std::string_view(tick(at(9, 2), "ON_TASK").encode()), DataPaths::checkerLog(root));
  add(said(at(9, 2), "coach", "ho"));
  EXPECT_TRUE(store.refresh(at(9, 3)));
  EXPECT_EQ(store.rows().events.size(), 2u);
  EXPECT_EQ(store.rows().ticks.size(), 1u);
  store.findOldQuiet();
  EXPECT_EQ(store.rows().events.front().type, "user_quiet_requested") << "an old order to be left alone still holds";
  store.reachBack(at(0, 0, 0, 1));
  store.refresh(at(9, 3));
  EXPECT_EQ(store.rows().events.size(), 3'003u);
  // A file that can't be read is told of, and what was read stays.
  std::filesystem::remove(root / "checker-log.jsonl");
  std::filesystem::create_directory(root / "checker-log.jsonl");
  store.refresh(at(9, 4));
  EXPECT_TRUE(store.trouble());
  EXPECT_EQ(store.rows().ticks.size(), 1u);
}

TEST_F(DayTest, aDayAsAPictureAndAPage) {
  test::InventedDay::write(root, calendar);
  const auto now = test::InventedDay::nowMs(calendar);
  DayStore store(root, now - 86'400'000);
  store.refresh(now);
  const auto body = std::string("Task: write the essay\nDeclared: 2026-03-04 2:21pm\nEstimate: until 4:30pm\nWhy: it is due\n");
  const auto page = NowPage::of({.rows = store.rows(), .taskBody = body, .nowMs = now, .calendar = calendar});
  EXPECT_EQ(page.task, "write the essay");
  EXPECT_EQ(page.clock, "since 14:21 (1 h 19 min), until 16:30 (50 min left)");
  EXPECT_EQ(page.verdict.substr(0, 8), "On task ");
  const auto& day = page.day;
  EXPECT_EQ(day.fromMs, at(9, 2));
  EXPECT_EQ(day.apps.size(), 9u) << "a stretch of one app is one block";
  EXPECT_EQ(day.apps[4].label, "screen locked");
  EXPECT_EQ(day.apps[4].slot, DayStrip::locked);
  EXPECT_EQ(day.apps[1].label + day.apps[2].label, "LibreOffice Writerfirefox");
  EXPECT_NE(day.apps[1].slot, day.apps[2].slot) << "two apps that want one colour";
  EXPECT_EQ(day.apps[1].slot, day.apps[3].slot);
  EXPECT_EQ(std::count_if(day.verdicts.begin(), day.verdicts.end(), [](auto& b) { return b.slot == DayStrip::notAligned; }), 2);
  const auto lines = day.explain(at(10, 55), 30'000, calendar);
  EXPECT_EQ(lines[0], "10:55");
  EXPECT_EQ(lines[1], "firefox, at the keyboard");
  EXPECT_EQ(lines[2], "off task: A video about sailing is playing while the essay is declared.");
  EXPECT_EQ(lines[3].substr(0, 34), "Lark: You wanted to write the essa");
  EXPECT_EQ(day.explain(at(8, 0), 1, calendar), (std::vector<std::string>{"8:00", "nothing was recorded"}));

  const auto late = NowPage::of({.rows = store.rows(), .taskBody = body, .nowMs = at(17, 0), .calendar = calendar});
  EXPECT_TRUE(late.isOverdue);
  EXPECT_EQ(late.clock, "since 14:21 (2 h 39 min), until 16:30 (30 min over)");
  EXPECT_EQ(late.verdict, "") << "an old verdict is none";
  const auto none = NowPage::of({.rows = store.rows(), .taskBody = "", .nowMs = now, .calendar = calendar});
  EXPECT_EQ(none.task + none.clock, "");
}

TEST(Durations, areSpoken) {
  const struct {
    std::int64_t ms;
    const char* want;
  } table[] = {{59'999, "under a minute"}, {60'000, "1 min"}, {3'600'000, "1 h"}, {5'400'000, "1 h 30 min"}, {200 * 3'600'000LL, "8 days"}};
  for (const auto& c : table) EXPECT_EQ(Durations::spoken(c.ms), c.want);
}

TEST(Conversation, entriesAndWhatCanBeUndone) {
  const std::vector events{
      said(at(23, 0, 0, 3), "user", "night"),
      event(at(9, 0), "task_declared", {{"task", "tea"}, {"until", "5:00pm"}}),
      event(at(9, 1), "ui_opened"),
      said(at(9, 1), "coach", "ho"),
      event(at(9, 2), "task_declared", {{"task", "essay"}, {"notes", "essay"}, {"horizon_minutes", 90}}),
      event(at(9, 2), "user_quiet_requested", {{"quiet_until_ts_ms", at(10, 0)}}),
      CoachCorrectionRecordedEvent::make({.text = "be brief", .asOfMs = at(9, 3)}, calendar),
      event(at(9, 4), "coach_turn_failed", {{"reason", "r"}, {"user_reason", "It will try again."}}),
      event(at(9, 4), "coach_decision"),
      AppChatEvents::coachMessage({.text = "t",
                                   .thinking = "hm",
                                   .asOfMs = at(9, 5),
                                   .servedBy = "x",
                                   .servedByFallback = true,
                                   .fallbackCause = FallbackCause::paced})};
  const auto conversation = Conversation::of(events, at(9, 30), calendar);
  std::vector<std::string> shown;
  for (const auto& entry : conversation.entries)
    shown.push_back(entry.text + (entry.undo ? " [undo " + std::to_string(entry.undo->index()) + "]" : ""));
  EXPECT_EQ(shown, (std::vector<std::string>{"Yesterday", "night", "Today", "You declared: tea until 5:00pm", "ho",
                                             "Noted as your intention: essay for 1 h 30 min [undo 0]", "Quiet until 10:00 [undo 1]",
                                             "Lark will keep in mind: be brief [undo 2]", "It will try again.", "t"}));
  EXPECT_EQ(conversation.entries.back().thinking, "hm");
  EXPECT_FALSE(conversation.entries.back().servedBy.empty()) << "who answered is told";
  EXPECT_TRUE(conversation.isOpen && conversation.wantsAnswer);
  EXPECT_EQ(conversation.openedMs, at(9, 1));
  const auto later = Conversation::of(events, at(11, 0), calendar);
  EXPECT_FALSE(later.entries[6].undo) << "what is over can't be undone";
}

}  // namespace
}  // namespace halvo
