#include <gtest/gtest.h>

#include <algorithm>

#include "AmbitudeAppKit/Present/Conversation.h"
#include "AmbitudeAppKit/Present/NowPage.h"
#include "AmbitudeAppKit/Present/PrivacyPage.h"
#include "AmbitudeAppKit/Present/RecordingCard.h"
#include "AmbitudeCore/Backends/TurnUsageRecordLog.h"
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
  for (const int hour : {7, 8, 9}) add(event(at(hour, 0, 0, 1), "user_quiet_requested", {{"quiet_until_ts_ms", at(hour, 0, 0, 20)}}));
  for (const int hour : {8, 9}) add(event(at(9, 30, 0, 1), "user_quiet_cancelled", {{"window_requested_ts_ms", at(hour, 0, 0, 1)}}));
  for (int i = 0; i < 3'000; ++i) add(event(at(10, 0, 0, 1), "coach_decision", {{"filler", std::string(60, 'x')}}));
  add(said(at(9, 0), "user", "hi"));
  DayStore store(root, at(8, 0));
  EXPECT_TRUE(store.refresh(at(9, 1)));
  EXPECT_EQ(store.rows().events.size(), 1u) << "the past is left out";
  EXPECT_TRUE(store.arrived().isAnew);
  EXPECT_FALSE(store.refresh(at(9, 1)));
  JSONLAppend::append(std::string_view(tick(at(9, 2), "ON_TASK").encode()), DataPaths::checkerLog(root));
  add(said(at(8, 59), "coach", "ho"));
  EXPECT_TRUE(store.refresh(at(9, 3)));
  EXPECT_EQ(store.rows().events.size(), 2u);
  ASSERT_EQ(store.arrived().events.size(), 1u) << "however old a row's time is";
  EXPECT_EQ(*store.arrived().events[0].text("text"), "ho");
  EXPECT_EQ(store.rows().ticks.size(), 1u);
  store.findOldQuiet();
  ASSERT_EQ(store.rows().events.size(), 4u) << "an old order to be left alone still holds, with what ended it";
  EXPECT_EQ(store.rows().events.front().tsMs, at(9, 0, 0, 1));
  store.reachBack(at(0, 0, 0, 1));
  store.refresh(at(9, 3));
  EXPECT_EQ(store.rows().events.size(), 3'007u);
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

  const auto rows = store.rows();
  const auto anewMs = *rows.ticks.back().atMs() + 1;
  const std::vector<EventLogEvent> declaredAnew{event(anewMs, "task_declared", {{"task", "tea"}})};
  const DayStore::Rows anew{declaredAnew, rows.ticks, rows.decisions, rows.samples, rows.corrections};
  const auto tea = NowPage::of({.rows = anew, .taskBody = body, .nowMs = anewMs, .calendar = calendar});
  EXPECT_EQ(tea.verdict, "") << "it judged what was declared before";
  const auto late = NowPage::of({.rows = store.rows(), .taskBody = body, .nowMs = at(17, 0), .calendar = calendar});
  EXPECT_TRUE(late.isOverdue);
  EXPECT_EQ(late.clock, "since 14:21 (2 h 39 min), until 16:30 (30 min over)");
  EXPECT_EQ(late.verdict, "") << "an old verdict is none";
  const auto none = NowPage::of({.rows = store.rows(), .taskBody = "", .nowMs = now, .calendar = calendar});
  EXPECT_EQ(none.task + none.clock, "");
}

TEST(DayStrip, aDayBeginsAtFourWhateverItsLength) {
  const struct { int month, day, hour, minute, beganDay; } table[] = {
      {3, 8, 4, 30, 8}, {3, 9, 3, 30, 8}, {11, 1, 3, 30, 31}, {11, 2, 3, 59, 1}, {3, 4, 4, 0, 4}};
  for (const auto& c : table) {
    const auto now = calendar.instant(2026, c.month, c.day, c.hour, c.minute);
    const auto began = calendar.instant(2026, c.beganDay == 31 ? 10 : c.month, c.beganDay, 4);
    const std::vector<EventLogEvent> marks{event(began - 1, "task_cleared"), event(began, "task_cleared")};
    const auto strip = DayStrip::of({marks, {}, {}, {}, {}}, now, calendar);
    EXPECT_TRUE(strip.marks.size() == 1 && strip.fromMs == began) << c.month << "-" << c.day;
  }
}

TEST(RecordingCard, warnsOfSilenceAndOfNothingElse) {
  const auto now = at(9, 0), old = now - 600'000, fresh = now - 2'000;
  const struct { std::optional<std::int64_t> frame, life, controlled; const char* line; bool isWarning; } table[] = {
      {fresh, fresh, {}, "Recording; the last frame came 2s ago", false},
      {old, fresh, {}, "Not recording while the screen is locked; the last frame came 10m ago", false},
      {old, old, fresh, "Not paused; the last frame came 10m ago", false},
      {old, old, old, "Not paused, but the last frame came 10m ago", true},
      {{}, {}, {}, "Not paused, but nothing has been recorded yet", true}};
  for (const auto& c : table) {
    const auto card = RecordingCard::of({.lastFrameMs = c.frame, .lastLifeMs = c.life, .controlledMs = c.controlled, .nowMs = now, .calendar = calendar});
    EXPECT_EQ(std::pair(card.line, card.isWarning), std::pair(std::string(c.line), c.isWarning));
  }
}

TEST(Durations, areSpoken) {
  const struct { std::int64_t ms; const char* want; } table[] = {
      {59'999, "under a minute"}, {60'000, "1 min"}, {3'600'000, "1 h"}, {5'400'000, "1 h 30 min"}, {200 * 3'600'000LL, "8 days"}};
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
      CoachCorrectionRecordedEvent::make({.text = "no jokes", .lasts = CoachCorrection::Lasts::nextFewHours, .asOfMs = at(9, 3)}, calendar),
      event(at(9, 3), "app_project_link_asserted", {{"app", "Gimp"}, {"project", "the poster"}}),
      event(at(9, 3), "option_card_offered", {{"title", "How long?"}, {"options", JSONValue::Array{JSONObject{{"label", "An hour"}}}}}),
      event(at(9, 4), "coach_turn_failed", {{"reason", "r"}, {"user_reason", "It will try again."}}),
      event(at(9, 4), "coach_decision"),
      AppChatEvents::coachMessage({.text = "t",
                                   .thinking = "hm",
                                   .asOfMs = at(9, 5),
                                   .servedBy = "x",
                                   .servedByFallback = true,
                                   .fallbackCause = FallbackCause::paced})};
  const auto conversation = Conversation::of({.events = events, .nowMs = at(9, 30), .calendar = calendar});
  std::vector<std::string> shown;
  for (const auto& entry : conversation.entries)
    shown.push_back(entry.text + (entry.undo ? " [undo " + std::to_string(entry.undo->index()) + "]" : ""));
  EXPECT_EQ(shown, (std::vector<std::string>{"Yesterday", "night", "Today", "You declared: tea until 5:00pm", "ho",
                                             "Noted as your intention: essay for 1 h 30 min [undo 0]", "Quiet until 10:00 [undo 1]",
                                             "Lark will keep in mind: be brief [undo 2]", "Lark will keep in mind: no jokes [undo 2]",
                                             "Noted: Gimp is part of the poster", "Lark offers: How long?", "It will try again.", "t"}));
  EXPECT_EQ(conversation.entries[8].undo, Conversation::Undo(Conversation::ForgetCorrection{at(9, 3) + 1})) << "of two of a turn each has its own";
  EXPECT_EQ(conversation.entries[10].answers, (std::vector<Conversation::Answer>{{"An hour"}}));
  EXPECT_EQ(conversation.entries.back().thinking, "hm");
  EXPECT_FALSE(conversation.entries.back().servedBy.empty()) << "who answered is told";
  EXPECT_TRUE(conversation.isOpen && conversation.wantsAnswer);
  EXPECT_EQ(conversation.openedMs, at(9, 1));
  auto answered = events;
  answered.push_back(said(at(9, 6), "user", "An hour"));
  const auto later = Conversation::of(
      {.events = answered, .fromMs = at(9, 0), .corrections = {{{.atMs = at(9, 3) + 1, .text = "no jokes"}}}, .nowMs = at(13, 0), .calendar = calendar});
  ASSERT_EQ(later.entries[1].text, "You declared: tea until 5:00pm") << "what is older has no entry";
  for (const int i : {4, 5, 6}) EXPECT_FALSE(later.entries[i].undo) << "what is over can't be undone, nor what was deleted: " << i;
  EXPECT_TRUE(later.entries[8].answers.empty());
}

TEST_F(DayTest, whatLeavesTheMachineIsSaidAsItIs) {
  const struct { Environment environment; const char* told; } cases[] = {
      {{}, "Nothing: the coach runs here, on local llama-server ("},
      {{{"AMBITCAP_MODEL_BACKEND", "proxy"}, {"AMBITCAP_PROXY_URL", "https://coach.test"}},
       "The coach's text goes to a service: proxy (https://coach.test"},
      {{{"AMBITCAP_MODEL_BACKEND", "openrouter"}}, "Nothing: the coach does not start. AMBITCAP_MODEL_BACKEND=openrouter but"},
      {{{"AMBITCAP_MODEL_BACKEND", "elsewhere"}}, "Nothing: the coach does not start. AMBITCAP_MODEL_BACKEND=\"elsewhere\" is not"}};
  for (auto [environment, told] : cases) {
    environment["HOME"] = folder.path().string();
    const auto page = PrivacyPage::read(root, environment, calendar);
    EXPECT_EQ(page.coach.substr(0, std::string_view(told).size()), told);
    EXPECT_TRUE(page.calls.empty());
  }
  const auto log = TurnUsageRecordLog::defaultURL(root);
  TurnUsageRecordLog::append({.atMs = at(9, 0), .layer = "gate", .promptTokens = 7}, log);
  TurnUsageRecordLog::append({.atMs = at(9, 1), .layer = "coach", .costUSD = 0.01}, log);
  TurnUsageRecordLog::append({.atMs = at(9, 2), .layer = "coach", .provider = "Acme"}, log);
  std::vector<std::string> calls;
  for (const auto& call : PrivacyPage::read(root, {{"HOME", folder.path().string()}}, calendar).calls)
    calls.push_back(call.who + ": " + call.where + (call.leftTheMachine ? " (left)" : ""));
  EXPECT_EQ(calls, (std::vector<std::string>{"coach: Acme (left)", "coach: a remote service (left)",
                                             "gate: the local model, or a service that gave no name"}));
}

}  // namespace
}  // namespace halvo
