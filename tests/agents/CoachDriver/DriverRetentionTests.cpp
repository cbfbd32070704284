#include <gtest/gtest.h>

#include <random>

#include "AmbitudeCore/Coach/Layer3Conversation.h"
#include "AmbitudeCore/Folds/CoachCorrectionsLog.h"
#include "AmbitudeCore/Gate/CoachGateTimeline.h"
#include "AmbitudeCore/Gate/GatePollingCadence.h"
#include "AmbitudeCore/Gate/Layer3Trigger.h"
#include "CaptureShared/EventLog/EventLogWriter.h"
#include "CaptureShared/EventLog/RetainedDriverLog.h"
#include "agents/CoachDriver/DriverRetention.h"
#include "tests/AmbitudeCore/Gate/GateScene.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {

using GateScene::at, GateScene::event;

/// A week of rows in random order of kinds, as years of use leave them.
void writeWeek(const std::filesystem::path& events, const std::filesystem::path& ticks, unsigned seed) {
  std::mt19937 random(seed);
  const std::vector<std::pair<std::string, JSONObject>> kinds{
      {"app_chat_message", {{"role", "user"}, {"text", "back to it"}}},
      {"app_chat_message", {{"role", "coach"}, {"text", "Still the essay?"}}},
      {"coach_decision", {{"tool_calls", JSONValue::Array{}}}},
      {"coach_checkin", {{"summary_for_coach", "in Steam"}}},
      {"task_declared", {{"task", "essay"}, {"notes", "essay"}, {"horizon_minutes", 600}}},
      {"task_cleared", {}},
      {"ui_opened", {}},
      {"ui_closed", {{"dismissed_by", "user"}}},
      {"coach_turn_failed", {{"reason", "x"}}},
      {"user_quiet_requested", {{"quiet_until_ts_ms", at(15, 0) + 60'000}}},
      {"coach_correction_recorded", {{"text", "less"}, {"lasts", "until_changed"}}},
      {"in_call_began", {}},
      {"in_call_ended", {{"reason", "ended"}}}};
  for (auto ms = at(15, 0) - 7 * 86'400'000; ms < at(15, 0); ms += 60'000 * (5 + random() % 240)) {
    const auto& [type, detail] = kinds[random() % kinds.size()];
    EventLogWriter::append(event(ms, type, detail), events, "test", "1");
    JSONLAppend::append(std::string_view(GateScene::tick(ms, random() % 2 ? "ON_TASK" : "NOT_ALIGNED", "Steam", "a game").encode()), ticks);
  }
}

/// Everything the driver makes of its rows.
std::string understanding(RetainedDriverLog& log) {
  const auto outcome = log.refresh();
  const auto& [events, ticks] = std::get<RetainedDriverLog::Ready>(outcome);
  const auto now = at(15, 0);
  std::string text = std::to_string(Layer3Trigger::evaluate({.events = events, .ticks = ticks, .floorMs = 0, .asOfMs = now}).index());
  text += " " + std::to_string(GatePollingCadence::latestInputTsMs(events, ticks).value_or(-1));
  text += "\n" + CoachGateTimeline::render(
                     {.events = events, .ticks = ticks, .floorMs = 0, .nowMs = now, .calendar = GateScene::calendar});
  for (const auto& message : Layer3Request::forReply({.events = events, .floorMs = 0, .asOfMs = now}, GateScene::calendar))
    text += "\n" + message.content;
  for (const auto& correction : CoachCorrectionsLog::fromEvents(events)) text += "\n" + std::to_string(correction.atMs) + correction.text;
  return text;
}

TEST(DriverRetention, whatIsLeftOutChangesNothing) {
  for (unsigned seed = 0; seed < 20; ++seed) {
    SCOPED_TRACE(seed);
    const test::TemporaryFolder folder;
    const auto events = folder.path() / "events", ticks = folder.path() / "ticks";
    writeWeek(events, ticks, seed);
    std::vector<std::string> lines;
    const auto say = [&](const std::string& line) { lines.push_back(line); };
    RetainedDriverLog whole(events, ticks, say), kept(events, ticks, say, DriverRetention::keep(at(15, 0)));
    EXPECT_EQ(understanding(kept), understanding(whole));
    EXPECT_LT(kept.ticks().fold.committed().size() * 3, whole.ticks().fold.committed().size());
    EXPECT_LT(kept.events().fold.committed().size(), whole.events().fold.committed().size());
    EXPECT_TRUE(lines.empty()) << "what is left out was not skipped: " << lines.front();
  }
}

}  // namespace
}  // namespace halvo
