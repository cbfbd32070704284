#include <fmt/format.h>
#include <gtest/gtest.h>

#include "AmbitudeCore/Coach/AppChatEvents.h"
#include "AmbitudeCore/Coach/CoachTools.h"
#include "AmbitudeCore/Coach/CoachTurnEffects.h"
#include "AmbitudeCore/Coach/Layer3TurnEffects.h"
#include "CaptureShared/Foundation/Text.h"
#include "tests/AmbitudeCore/Gate/GateScene.h"

namespace halvo {
namespace {

using GateScene::at, GateScene::calendar;
using Guard = CorrectJudgmentGuard::Verdict;

const std::int64_t now = at(15, 0);

ToolCall call(const char* name, const std::string& arguments) { return {name, JSONValue::parse(arguments).value()}; }

TEST(CoachTurnEffects, whatEachCallChanges) {
  const std::string link = R"({"app":"Fruit Ninja","project":"IMGD 3"})", quietUntil = std::to_string(at(15, 30));
  const struct {
    const char* name;
    std::string arguments;
    const char* type;
    std::string detail;  // of the event; for a refused call only its own keys, the call's arguments stand in it too
    const char* result;
    bool isRefused = false;
    Guard guard = Guard::allowed;
  } cases[] = {
      {"write_current_intention", R"({"notes":" the essay ","horizon_minutes":25,"path":"/etc"})", "task_declared",
       R"({"horizon_minutes":25,"notes":"the essay","task":"the essay","until":null,"why":null})", "Recorded: the essay for 25 minutes."},
      {"write_current_intention", R"({"notes":"a nap","horizon_minutes":null})", "task_declared",
       R"({"notes":"a nap","task":"a nap","until":null,"why":null})", "Recorded: a nap with no time limit."},
      {"write_task", R"({"task":"tea","horizon_minutes":"5"})", "task_declared",
       R"({"horizon_minutes":5,"notes":"tea","task":"tea","until":null,"why":null})", "Recorded: tea for 5 minutes."},
      {"write_current_intention", R"({"notes":" \n"})", "write_task_malformed", R"({"reason":"missing or empty notes"})",
       "Not recorded — `notes`", true},
      {"write_current_intention", R"({"notes":"x","horizon_minutes":0})", "write_task_malformed",
       R"({"attempted_horizon_minutes":0,"reason":"missing notes or unusable horizon_minutes"})", "Not recorded", true},
      {"write_current_intention", R"({"notes":"x","horizon_minutes":10081})", "write_task_malformed",
       R"({"attempted_horizon_minutes":10081,"reason":"missing notes or unusable horizon_minutes"})", "Not recorded", true},
      {"write_current_intention", R"({"notes":["x"],"horizon_minutes":true})", "write_task_malformed",
       R"({"attempted_horizon_minutes":true,"reason":"missing notes or unusable horizon_minutes"})", "Not recorded", true},
      {"correct_judgment", link, "app_project_link_asserted", link, "Recorded: Fruit Ninja is part of IMGD 3."},
      {"correct_judgment", R"({"app":"x","project":" "})", "correct_judgment_malformed", R"({"reason":"missing app or project"})",
       "Not recorded — missing app or project.", true},
      {"correct_judgment", link, "correct_judgment_refused", R"({"reason":"bare_answer_to_own_question"})",
       "Not recorded — their reply was only a yes or no to your own question", true, Guard::bareAnswerToOwnQuestion},
      {"go_quiet", R"({"minutes":30,"message":"Okay."})", "user_quiet_requested",
       fmt::format(
           R"({{"quiet_until_ts_ms":{0},"user_quiet_applied_minutes":30,"user_quiet_requested_minutes":30,"user_quiet_until_ts_ms":{0}}})",
           quietUntil),
       "Quiet for 30 minutes."},
      {"go_quiet", R"({"rest_of_day":true,"minutes":1})", "user_quiet_requested",
       fmt::format(R"({{"quiet_until_ts_ms":{0},"user_quiet_until_ts_ms":{0}}})", at(4, 0, 0, 5)), "Quiet for the rest of today."},
      {"go_quiet", R"({"rest_of_day":false,"message":"Quiet till 4."})", "user_quiet_malformed",
       R"({"reason":"no usable minutes or rest_of_day"})", "Not applied — no usable `minutes`", true},
      {"remember_correction", R"({"correction":" less of this ","lasts":"rest_of_today","scope":"what_to_say"})",
       "coach_correction_recorded",
       fmt::format(R"({{"expires_at_ms":{},"lasts":"rest_of_today","scope":"what_to_say","text":"less of this"}})", at(5, 0, 0, 5)),
       "Recorded: less of this — for the rest of today."},
      {"remember_correction", R"({"correction":"hush","lasts":"next_few_hours","scope":"everything"})", "coach_correction_recorded",
       fmt::format(R"({{"expires_at_ms":{},"lasts":"next_few_hours","text":"hush"}})", at(18, 0)),
       "Recorded: hush — for the next few hours."},
      {"remember_correction", R"({"correction":"hush","lasts":"until_changed"})", "coach_correction_recorded",
       R"({"lasts":"until_changed","text":"hush"})", "Recorded: hush"},
      {"remember_correction", R"({"correction":"","lasts":"until_changed"})", "remember_correction_malformed",
       R"({"reason":"missing correction"})", "Not recorded — `correction` was missing or empty, so nothing was saved.", true},
      {"remember_correction", R"({"correction":"hush","lasts":"forever"})", "remember_correction_lasts_missing",
       R"({"reason":"missing or unknown lasts"})", "Not recorded — `lasts`", true},
      {"propose_options",
       R"({"setting":"s","title":"t","message":"m","options":[{"id":"a","label":"A","hint":"h"},{"id":"a","label":"again"},{"id":"b","label":"B"}]})",
       "option_card_offered",
       R"({"message":"m","options":[{"hint":"h","id":"a","label":"A"},{"id":"b","label":"B"}],"setting":"s","title":"t"})", "Shown."},
      {"propose_options", R"({"title":"t","message":"m","options":[{"id":"a","label":"A"},{"id":"b","label":" "},7]})",
       "propose_options_malformed", R"({"reason":"usable_options=1"})", "Not shown — fewer than two usable options.", true},
      {"propose_options", R"({"title":"","options":[{"id":"a","label":"A"},{"id":"b","label":"B"}]})", "propose_options_malformed",
       R"({"reason":"missing title usable_options=2"})", "Not shown — missing title.", true},
      {"go_quiet", R"("not even an object")", "user_quiet_malformed", R"({"reason":"no usable minutes or rest_of_day"})", "Not applied",
       true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.name) + " " + c.arguments);
    const auto made = CoachTurnEffects::toolEffects({call(c.name, c.arguments)}, now, c.guard, calendar);
    ASSERT_EQ(made.taken.size(), 1u);
    const auto& effect = made.taken[0];
    ASSERT_EQ(effect.events.size(), 1u);
    EXPECT_EQ(effect.events[0].type, c.type);
    EXPECT_EQ(effect.events[0].tsMs, now);
    auto detail = *effect.events[0].detail.objectValue();
    if (c.isRefused && std::string_view(c.type) != "correct_judgment_refused") {
      EXPECT_EQ(*detail.find("arguments"), effect.call.arguments) << "what was sent is kept";
      detail.erase("arguments");
    }
    EXPECT_EQ(JSONValue(detail).dump(), c.detail);
    EXPECT_TRUE(effect.result.starts_with(c.result)) << effect.result;
    EXPECT_EQ(effect.isRefused, c.isRefused);
  }
}

ChatResponse reply(std::string text, std::vector<ToolCall> calls = {}, bool truncated = false) {
  return {.text = std::move(text), .toolCalls = std::move(calls), .truncated = truncated};
}

TEST(Layer3TurnEffects, whatATurnBecomes) {
  const auto tea = call("write_current_intention", R"({"notes":"tea"})"), quiet = call("go_quiet", R"({"minutes":30,"message":"Okay."})");
  const auto noQuiet = call("go_quiet", R"({"message":"Quiet till 4."})");
  const auto none = "coach_turn_failed:it decided to check in but didn't produce a reply";
  const std::string run20(20, '!');
  const struct {
    const char* name;
    ChatResponse response;
    bool isCheckin;
    std::string want;
    std::optional<std::string> fallback = {};
  } cases[] = {{"a check-in", reply("Still?"), true, "coach_checkin coach_decision app_chat_message:Still? ui_opened"},
               {"a reply", reply(" Good. "), false, "coach_decision app_chat_message:Good."},
               {"a reply with a tool", reply("Noted.", {tea}), false, "task_declared coach_decision app_chat_message:Noted."},
               {"the message serves as the words", reply("\n", {tea, quiet}), false,
                "task_declared user_quiet_requested coach_decision app_chat_message:Okay."},
               {"not of a window that does not exist", reply("", {noQuiet}), false, none},
               {"only a tool call", reply("", {tea}), true, none},
               {"only a tool call, and words to fall back on", reply("", {tea}), false, "app_chat_message:I hear you.", "I hear you."},
               {"cut off", reply("Well, I", {}, true), true, none},
               {"runs away", reply(run20), false, none},
               {"the message of a call runs away", reply("", {call("go_quiet", R"({"minutes":9,"message":"!!!!!!!!!!!!!!!!!!!!!!!"})")}),
                false, none},
               {"nothing at all", reply("  "), false, none},
               {"silence", reply("\uE000"), true, none},
               {"a stray silence", reply("Still\uE000?"), false, "coach_decision app_chat_message:Still?"},
               {"only a leaked call", reply("go_quiet(30)"), false, none},
               {"a call of no tool", reply("Hm.", {call("sudo", "{}"), call("open_ui", "{}")}), false,
                "tool_call_dropped:unknown tool tool_call_denied:not one of the coach's tools coach_decision app_chat_message:Hm."},
               {"the same call twice", reply("Ok.", {tea, tea, call("write_current_intention", R"({"notes":"cake"})")}), false,
                "tool_call_dropped:duplicate task_declared task_declared coach_decision app_chat_message:Ok."}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const auto events = Layer3TurnEffects::events({.checkinSummary = c.isCheckin ? std::optional<std::string>("s") : std::nullopt,
                                                   .response = c.response,
                                                   .asOfMs = now,
                                                   .noReplyFallbackText = c.fallback},
                                                  calendar);
    std::vector<std::string> shown;
    for (const auto& event : events) {
      const auto* words = event.type == "task_declared" ? nullptr : event.text("text") ? event.text("text") : event.text("reason");
      shown.push_back(event.type + (words ? ":" + *words : ""));
      EXPECT_EQ(event.tsMs, now);
      EXPECT_EQ(event.source, "coach-core");
      EXPECT_EQ(event.text("user_reason"), nullptr) << "what the person is told is the driver's to say, once";
    }
    EXPECT_EQ(Text::join(shown, " "), c.want);
  }
}

TEST(CoachTurnEffects, theDecisionAndTheMessageKeepWhatWasDone) {
  auto response =
      reply("Ok.", {call("write_task", R"({"task":"tea"})"), call("sudo", R"({"rm":"/"})"), call("write_task", R"({"task":"tea"})")});
  response.thinking = "hm", response.servedBy = "spare", response.servedByFallback = true,
  response.fallbackCause = FallbackCause::unreachable;
  response.provenance = ChatProvenance{.generationID = "g", .finishReason = "stop"};
  const auto events = CoachTurnEffects::baseEvents(response, now, Guard::allowed, calendar);
  ASSERT_EQ(events.size(), 5u);
  EXPECT_EQ(events[3].detail.dump(),
            R"({"dropped_duplicate_tool_calls":["write_task"],"tool_calls":[{"arguments":{"task":"tea"},"name":"write_task"}],)"
            R"("tool_results":[{"name":"write_task","text":"Recorded: tea with no time limit."}],"unrecognized_tool_calls":["sudo"]})");
  EXPECT_EQ(events[4].detail.dump(),
            R"({"fallback_cause":"unreachable","provenance":{"finish_reason":"stop","generation_id":"g"},"role":"coach",)"
            R"("served_by":"spare","served_by_fallback":true,"text":"Ok.","thinking":"hm"})");
  EXPECT_EQ(AppChatEvents::fallbackCause(events[4]), FallbackCause::unreachable);

  const auto cut = CoachTurnEffects::rejection(reply("Well", {}, true), now);
  ASSERT_TRUE(cut);
  EXPECT_EQ(cut->event.type, "coach_output_rejected");
  EXPECT_EQ(cut->reason, "reply cut off at the token limit (finish_reason=length) — discarded, not shown, not retried");
  EXPECT_EQ(cut->userReason, "The coach's reply got cut off, so it wasn't shown.");
  EXPECT_EQ(CoachTurnEffects::rejection(reply(std::string(2001, ' ') + std::string(20, '-')), now)->event.detail.dump(),
            R"({"reason":"repeated_run=20 limit=20"})");
  EXPECT_EQ(CoachTurnEffects::rejection(reply(""), now)->reason, "empty_completion");
  EXPECT_FALSE(CoachTurnEffects::rejection(reply("", {call("go_quiet", "{}")}), now));
}

TEST(CorrectJudgmentGuard, verdict) {
  const struct {
    std::vector<const char*> talk;  // alternating from the end: the person's last words, the coach's before them
    Guard want;
  } cases[] = {{{"Is Steam for the project?", "[9:05] yes"}, Guard::bareAnswerToOwnQuestion},
               {{"Is Steam for the project?", "[15:02] Yeah, exactly!"}, Guard::bareAnswerToOwnQuestion},
               {{"Is Steam for the project?", "[15:02] yes — it is 👍"}, Guard::bareAnswerToOwnQuestion},
               {{"Is Steam for the project?", "[15:02] That’s right."}, Guard::bareAnswerToOwnQuestion},
               {{"Is Steam for the project?", "[15:02] NO"}, Guard::bareAnswerToOwnQuestion},
               {{"Is Steam for the project?", "[15:02] yes\nSteam is my game project"}, Guard::allowed},
               {{"Is Steam for the project?", "[15:02] nope, it is a break"}, Guard::allowed},
               {{"Is Steam for the project?", "[15:02] sí"}, Guard::allowed},
               {{"Steam is up.", "[15:02] yes"}, Guard::allowed},
               {{"Is Steam for it?", "[15:02] yes", "Noted. [15:03] x"}, Guard::bareAnswerToOwnQuestion},
               {{}, Guard::bareAnswerToOwnQuestion}};
  for (const auto& c : cases) {
    std::vector<ChatMessage> talk;
    for (std::size_t i = 0; i < c.talk.size(); ++i)
      talk.push_back(i % 2 ? ChatMessage::user(c.talk[i]) : ChatMessage::assistant(c.talk[i]));
    talk.push_back(ChatMessage::user("— 40 minutes later —"));
    talk.push_back(ChatMessage::user("It's 15:40. The system's summary of what it observed: \"[15:41] Steam is my project\""));
    EXPECT_EQ(CorrectJudgmentGuard::verdict(talk), c.want) << (c.talk.size() > 1 ? c.talk[1] : "");
  }
}

TEST(CoachToolCallDisplay, line) {
  EXPECT_EQ(CoachToolCallDisplay::line(call("write_task", R"({"notes":"a\nb"})")), "recorded your intention: a b");
  EXPECT_EQ(CoachToolCallDisplay::line(call("go_quiet", R"({"minutes":30})")), "going quiet: 30 min");
  EXPECT_EQ(CoachToolCallDisplay::line(call("sudo", R"({"notes":"x"})")), "used a tool");
  const auto longOne = CoachToolCallDisplay::line(call("remember_correction", "{\"correction\":\"" + std::string(200, 'x') + "\"}"));
  EXPECT_EQ(longOne, "remembered what you said: " + std::string(80, 'x') + "…");
}

}  // namespace
}  // namespace halvo
