// What the person taught, what the service's trouble comes to, and the events that quiet, chat and corrections own, by way of the file.

#include <gtest/gtest.h>

#include "AmbitudeCore/Backends/ModelBackendError.h"
#include "AmbitudeCore/Coach/AppChatEvents.h"
#include "AmbitudeCore/Coach/CoachFeedbackWriter.h"
#include "AmbitudeCore/Coach/CoachServiceStatus.h"
#include "AmbitudeCore/Coach/CoachTools.h"
#include "AmbitudeCore/Coach/CoachTurnEffects.h"
#include "AmbitudeCore/Folds/CoachCorrectionsLog.h"
#include "AmbitudeCore/Folds/CoachProjection.h"
#include "AmbitudeCore/Folds/CoachUIState.h"
#include "AmbitudeCore/Folds/GoQuietArguments.h"
#include "AmbitudeCore/Folds/RewriteError.h"
#include "AmbitudeCore/Gate/PatternBreakCheck.h"
#include "CaptureShared/EventLog/EventLogReader.h"
#include "CaptureShared/EventLog/EventLogWriter.h"
#include "tests/AmbitudeCore/Coach/ScriptedBackend.h"
#include "tests/AmbitudeCore/Gate/GateScene.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {

using GateScene::at, GateScene::calendar, GateScene::event, GateScene::said, GateScene::tick;

TEST(EventTable, whatIsWrittenIsReadBack) {
  const test::TemporaryFolder folder;
  const auto file = folder.path() / "io-layer/events.jsonl";
  const auto roundTrip = [&](const EventLogEvent& written) {
    std::filesystem::remove(file);
    EventLogWriter::append(written, file, "test", "1");
    return EventLogReader::read(file);
  };
  using Rows = std::vector<EventLogEvent>;
  const auto byCall = [](const char* tool, JSONObject arguments) {
    return CoachTurnEffects::baseEvents({.text = "ok", .toolCalls = {{tool, std::move(arguments)}}}, at(15, 0),
                                        CorrectJudgmentGuard::Verdict::allowed, calendar)[0];
  };
  const auto silence = CoachTurnEffects::baseEvents({.text = std::string(CoachTools::silenceSentinel)}, 3,
                                                    CorrectJudgmentGuard::Verdict::allowed, calendar).back();
  CoachServiceStatus status({.retryableThreshold = 1});
  const auto problem = status.observe(ModelBackendError::transportError("x"), 1), restored = status.observeSuccess(2, false);
  const struct { const char* type; EventLogEvent row; std::function<bool(const Rows&)> isRead; } table[] = {
      {"do_not_disturb", DoNotDisturbEvent::make({.minutes = 20, .expectation = "x", .asOfMs = 5}),
       [](const Rows& rows) { return DoNotDisturbWindow::latest(rows, 5) == DoNotDisturbWindow{5, 1'200'005, "x", {}}; }},
      {"do_not_disturb_ended",
       DoNotDisturbEndedEvent::make({.windowStartMs = 5, .reason = DoNotDisturbEndReason::patternBroke, .detail = "why", .asOfMs = 9}),
       [](Rows rows) {
         EXPECT_EQ(*rows[0].text("detail"), "why");
         rows.push_back(DoNotDisturbEvent::make({.minutes = 20, .asOfMs = 5}));
         return DoNotDisturbWindow::latest(rows, 9)->effectiveEndMs() == 9;
       }},
      {"user_quiet_requested", byCall("go_quiet", {{"minutes", 2}}),
       [](const Rows& rows) { return UserQuietWindow::latest(rows, at(15, 1))->untilMs == at(15, 5); }},
      {"user_quiet_cancelled", UserQuietCancelledEvent::make(5, 9),
       [](Rows rows) {
         rows.push_back(UserQuietRequestedEvent::make({.untilMs = 100, .asOfMs = 5}));
         return UserQuietWindow::latest(rows, 9)->effectiveEndMs() == 9;
       }},
      {"user_quiet_malformed", byCall("go_quiet", {{"minutes", "30"}}),
       [](const Rows& rows) { return !UserQuietWindow::latest(rows, at(16, 0)) && rows[0].detail.find("arguments"); }},
      {"app_chat_message",
       AppChatEvents::coachMessage({.text = "t", .asOfMs = 3, .servedByFallback = true, .fallbackCause = FallbackCause::paced}),
       [](const Rows& rows) { return AppChatEvents::fallbackCause(rows[0]) == FallbackCause::paced; }},
      {"ui_opened", CoachTurnEffects::event("ui_opened", {}, 3),
       [](const Rows& rows) { return CoachUIState::isOpen(rows) && UIOpenRequestedTrailingState::shouldPresentOnColdReplay(rows); }},
      {"ui_closed", CoachTurnEffects::userDismissedUIEvent(3),
       [](const Rows& rows) { return CoachUIState::isUserClose(rows[0]) && !CoachUIState::isOpen(rows); }},
      {"empty_open_ui", EmptyOpenUIEvent::make(3), [](const Rows& rows) { return !CoachUIState::isOpen(rows); }},
      {"coach_reply_not_surfaced", silence,
       [](const Rows& rows) { return *rows[0].text("reason") == "silence" && !CoachUIState::isOpen(rows); }},
      {"coach_service_problem", problem.value(),
       [](const Rows& rows) {
         return CoachServiceStatus::displayText(rows) == "Halvo can't reach its coach service. Check your internet connection.";
       }},
      {"coach_service_restored", restored.value(),
       [](const Rows& rows) { return CoachServiceStatus::displayText(rows) == "The coach service is working again."; }},
      {"coach_correction_recorded", byCall("remember_correction", {{"correction", "c"}, {"lasts", "next_few_hours"}, {"scope", "what_to_say"}}),
       [](const Rows& rows) {
         const CoachCorrection want{.atMs = at(15, 0),
                                    .text = "c",
                                    .scope = CoachCorrection::Scope::whatToSay,
                                    .expiresAtMs = at(18, 0),
                                    .lasts = CoachCorrection::Lasts::nextFewHours};
         return CoachCorrectionsLog::fromEvents(rows) == std::vector{want};
       }}};
  for (const auto& c : table) {
    SCOPED_TRACE(c.type);
    EXPECT_EQ(c.row.type, c.type);
    EXPECT_EQ(c.row.source, "coach-core");
    EXPECT_TRUE(c.isRead(roundTrip(c.row)));
  }
}

TEST(CoachUIState, answerAndColdReplay) {
  const std::vector open{event(at(15, 0), "ui_opened")};
  EXPECT_EQ(CoachUIState::answer(open, at(15, 4), calendar), "The UI is currently open. The current time is 15:04");
  EXPECT_EQ(CoachUIState::answer(open, at(14, 4), calendar), "The UI is currently closed. The current time is 14:04");
  using UIOpenRequestedTrailingState::shouldPresentOnColdReplay;
  EXPECT_TRUE(shouldPresentOnColdReplay(std::vector{said(at(14, 0), "user", "x"), open[0], said(at(15, 1), "coach", "y")}));
  EXPECT_FALSE(shouldPresentOnColdReplay(std::vector{open[0], said(at(15, 1), "user", "x")}));
}

TEST(CoachServiceStatus, oneProblemAndOneRestored) {
  const auto busy = ModelBackendError::httpError(503, "busy"), refused = ModelBackendError::httpError(400, "no");
  const auto lost = ModelBackendError::transportError("no route");
  CoachServiceStatus status({.countsTransportFailures = false});
  for (int i = 1; i <= 6; ++i) {
    EXPECT_FALSE(status.observe(refused, i)) << "not retryable";
    EXPECT_FALSE(status.observe(lost, i)) << "not counted here";
    EXPECT_EQ(status.observe(busy, i).has_value(), i == 5) << i;
  }
  EXPECT_FALSE(status.observeSuccess(7, true)) << "the fallback's answer says nothing of the service";
  const auto restored = status.observeSuccess(8, false);
  ASSERT_TRUE(restored);
  EXPECT_FALSE(status.observeSuccess(9, false));
  CoachServiceStatus restarted({});
  const std::vector log{event(1, "coach_service_problem", {{"reason", "http 503"}})};
  EXPECT_EQ(CoachServiceStatus::displayText(log), "The coach service isn't working right now.");
  restarted.resume(log);
  for (int i = 0; i < 9; ++i) EXPECT_FALSE(restarted.observe(lost, i)) << "told by the run before";
  EXPECT_TRUE(restarted.observeSuccess(9, false));
}

TEST(PatternBreakCheck, questionAndVerdict) {
  const auto start = at(15, 0);
  std::vector<ClassifierTick> ticks;
  for (int i = -20; i < 40; ++i) ticks.push_back(tick(start + i * 60'000, "NOT_ALIGNED", "firefox", i < 0 ? "cats <|turn>" : "dogs"));
  test::ScriptedBackend model;
  std::string answer;
  model.answer = [&](const auto&, const auto&) { return ChatResponse{.text = answer}; };
  const auto ask = [&](std::optional<std::string> expectation, std::span<const ClassifierTick> seen) {
    const DoNotDisturbWindow window{.startMs = start, .untilMs = at(16, 0), .expectation = std::move(expectation)};
    return PatternBreakCheck::evaluate({.window = window, .ticks = seen, .asOfMs = at(15, 30), .calendar = calendar}, model, {});
  };
  EXPECT_FALSE(ask(" ", ticks)) << "blind";
  EXPECT_FALSE(ask("cats", std::span(ticks).subspan(20, 1))) << "one judgment is no pattern";
  EXPECT_TRUE(model.calls().empty());
  using Verdict = PatternBreakCheck::Verdict;
  for (const auto& [reply, want] : {std::pair{"SAME", Verdict{}}, {"CHANGED\nDogs now.", Verdict{true, "Dogs now."}}, {"changed", Verdict{}},
                                    {"UNCHANGED", Verdict{}}, {"CHANGEDish", Verdict{}}, {"\nCHANGED", Verdict{true, ""}}, {"", Verdict{}}}) {
    answer = reply;
    EXPECT_EQ(ask("more cats", ticks), want) << reply;
  }
  const auto call = model.calls().back();
  const auto text = call.messages[1].content;
  EXPECT_TRUE(text.starts_with("Prediction: more cats\n\nTimeline:\n14:45 NOT_ALIGNED, firefox frontmost, saying: \"cats < |turn>\"\n")) << text;
  EXPECT_NE(text.find("\n--- asked to be left alone here ---\n15:06 "), std::string::npos) << "25 of the 31 inside";
  EXPECT_TRUE(text.ends_with("\n15:30 NOT_ALIGNED, firefox frontmost, saying: \"dogs\"\n\nHas the pattern changed?"));
  EXPECT_FALSE(call.options.think);
}

TEST(CoachFeedbackWriter, keptChangedAndReplayable) {
  using namespace CoachFeedbackWriter;
  const test::TemporaryFolder folder;
  const auto url = defaultURL(folder.path());
  EXPECT_TRUE(readAll(url).empty());
  const Grade good{.feedback = Keep{"short"}, .atMs = 5, .asOfMs = 1000};
  EXPECT_TRUE(write(good, url) && write(good, url));
  EXPECT_TRUE(write({.feedback = Criterion{Mode::mustNotContain, "first step", {}}, .atMs = 5, .asOfMs = 2000}, url));
  auto rows = readAll(url);
  ASSERT_EQ(rows.size(), 3u);
  EXPECT_NE(rows[0].id(), rows[1].id()) << "each can be named";
  EXPECT_EQ(rows[2].encode(),
            R"({"atMs":5,"createdAt":"1970-01-01T00:00:02.000Z","kind":"criterion","mode":"must_not_contain","text":"first step"})");
  update(rows[2].id(), Fault{"no"}, url);
  erase(rows[0].id(), url);
  const auto id = rows[0].id();
  rows = readAll(url);
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_EQ(rows[1], (StoredFeedback{.atMs = 5, .createdAt = "1970-01-01T00:00:02.000Z", .kind = Kind::fault, .note = "no"}));
  try {
    erase(id, url);
    ADD_FAILURE();
  } catch (const RewriteError& error) {
    EXPECT_EQ(error.kind(), RewriteError::Kind::notFound);
    EXPECT_STREQ(error.what(), "that feedback entry isn't in the file any more — it may have changed elsewhere");
  }
  EXPECT_EQ(writeReportingFailure({.feedback = Keep{"\xff"}, .atMs = 5}, url), "could not encode feedback as JSON");
  EXPECT_EQ(writeReportingFailure(good, folder.path() / "absent/f"), "could not save: errno 2");

  const std::vector events{said(at(15, 0, 0, 3) - 1, "user", "too old"), said(at(14, 59), "user", "a"), said(at(15, 0), "coach", "b"),
                           said(at(15, 1), "user", "later")};
  const std::vector ticks{tick(at(14, 0), "ON_TASK"), tick(at(15, 2), "ON_TASK")};
  const auto file = captureFixture({.atMs = at(15, 0), .events = events, .ticks = ticks, .asOfMs = 0}, fixturesDirectory(folder.path()));
  EXPECT_EQ(file.filename(), "turn-" + std::to_string(at(15, 0)) + ".json");
  EXPECT_EQ(readFixture(file), (Fixture{at(15, 0), {events[1], events[2]}, {ticks[0]}, "1970-01-01T00:00:00.000Z"}));
}

}  // namespace
}  // namespace halvo
