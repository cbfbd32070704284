#include "tools/PracticeModel/PracticeReplies.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "tools/PracticeModel/PracticeDialect.h"
#include "tools/PracticeModel/PracticeScript.h"

namespace halvo {
namespace {

std::string moment(std::string_view declared, std::string_view activity, std::string_view content = "") {
  return fmt::format("DECLARED INTENTION:\n{}\n\nCURRENT ACTIVITY (right now):\n{}{}\n\nJudge it.", declared, activity,
                     content.empty() ? "" : fmt::format("\n\nWINDOW_CONTENT:\n{}", content));
}

TEST(PracticeReplies, classify) {
  const auto essay = "Task: write the essay\nDeclared: 2026-03-04 9:15am ET\nEstimate: until 10:15am";
  const auto editor = R"({"frontmost_app": "Mousepad", "frontmost_window_title": "essay.txt", "seconds_since_last_input": 1.0})";
  const auto site =
      R"({"frontmost_app": "Firefox", "frontmost_window_title": "Roman Empire - VideoTube", "seconds_since_last_input": 9.0})";
  const struct { const char* name; std::string message; const char *state, *named; } cases[] = {
      {"nothing declared", moment("(none declared)", site), "NO_TASK", "you have not declared"},
      {"the document is open", moment(essay, editor), "ON_TASK", "Mousepad"},
      {"a video site", moment(essay, site), "NOT_ALIGNED", "you declared write the essay, but Firefox"},
      {"the page talks about the task", moment(essay, site, "{'ocr_text': 'how to essay'}"), "NOT_ALIGNED", "Firefox"},
      {"an editor whose text speaks of videos", moment(essay, editor, "{'ocr_text': 'youtube video game'}"), "ON_TASK", "essay"},
      {"a break spent on videos", moment("Task: Break\nDeclared: x", site), "ON_TASK", "Break"},
      {"a break spent in the editor", moment("Task: Break\nDeclared: x", editor), "NOT_ALIGNED", "looks like work"},
      {"well over the estimate",
       moment(essay, R"({"frontmost_app": "Mousepad", "frontmost_window_title": "essay.txt", "minutes_over_estimate": 12.0})"),
       "NOT_ALIGNED", "12 minutes past"},
      {"over it by a trifle",
       moment(essay, R"({"frontmost_app": "Mousepad", "frontmost_window_title": "essay.txt", "minutes_over_estimate": 1.5})"), "ON_TASK",
       "essay"},
      {"nobody there", moment(essay, R"({"frontmost_app": "Mousepad", "seconds_since_last_input": 280.0})"), "IDLE", "5 minutes"},
      {"a broken message", "DECLARED INTENTION:\nx", "ON_TASK", "nothing"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const auto verdict = JSONValue::parse(PracticeReplies::classify(c.message));
    ASSERT_TRUE(verdict);
    EXPECT_EQ(*verdict->find("state"), JSONValue(c.state));
    EXPECT_TRUE(verdict->find("confidence")->numberValue());
    EXPECT_NE(verdict->find("reason")->stringValue()->find(c.named), std::string::npos) << verdict->dump();
  }
}

TEST(PracticeReplies, nightlyPrompts) {
  const std::string preface = "What this memory is for: a coach reads it.\n\n";
  const auto asked = [&](const std::string& prompt) {
    return JSONValue::parse(PracticeReplies::reply({.lastRole = "user", .last = prompt, .firstUser = prompt}).text).value();
  };
  const auto digest = asked(preface + "Distil it.\n\n1. [03-04 12:00] declared: the essay\n2. [03-04 12:01] coach: Still?\n"
                                      "3. [03-04 12:02] you: 4. yes\n\nRespond with ONLY the JSON object.");
  EXPECT_EQ(digest.find("summary")->stringValue()->substr(0, 9), "3 line(s)");
  EXPECT_EQ(digest.at({"facts", "0"})->dump(), R"({"provenance":"asserted","source_lines":[1],"text":"working on the essay"})");
  EXPECT_EQ(digest.find("lessons")->arrayValue()->size(), 1u);
  EXPECT_EQ(*asked(preface + "(quiet period, nothing logged)").find("summary"), JSONValue("Nothing was logged."));
  EXPECT_EQ(asked(preface + "Organize.\n\nCandidate facts (index, text):\n[0] working on the essay\n[1] Blender is film\n\nCandidate lessons:\n- l\n\n"
                            "The user's corrections:\n- fewer jokes\n\nRespond")
                .dump(),
            R"({"keep_fact_indices":[0,1],"lessons":["l"],"threads":[{"name":"the essay","notes":"declared","status":"active"}]})");
}

TEST(PracticeReplies, estimate) {
  const struct { const char* task; JSONValue minutes; } cases[] = {
      {"write for 20 min", 20},
      {"call mum, 1 hour 30 minutes", 90},
      {"a couple hours of reading", 120},
      {"an hour and a half of code", 90},
      {"half an hour", 30},
      {"read for a bit", 15},
      {"two hours", 120},
      {"until 5:00pm", 465},
      {"til I need to leave at 6", 525},
      {"until 8am", -75},
      {"write the essay", nullptr},
      {"until I'm tired", nullptr},
      {"chapter 20", nullptr},
      {"0 minutes", nullptr}};
  for (const auto& c : cases) {
    const auto reply = JSONValue::parse(PracticeReplies::estimate(fmt::format("Task: {}\nDeclared: 2026-03-04 9:15am ET\n", c.task)));
    ASSERT_TRUE(reply) << c.task;
    EXPECT_EQ(*reply->find("estimated_minutes"), c.minutes) << c.task;
    EXPECT_EQ(reply->find("has_estimate")->boolValue(), !c.minutes.isNull()) << c.task;
  }
}

TEST(PracticeReplies, reasonCheck) {
  const auto check = [](std::string_view sentence) {
    return PracticeReplies::reasonCheck(
        fmt::format("DECLARED INTENTION:\npay $50, appointment\n\nSENTENCE:\n{}\n\nDoes the sentence carry private details "
                    "from that screen? Reply {{\"private\": true|false}}.",
                    sentence));
  };
  EXPECT_EQ(check("you are on your bank's site"), R"({"private": false})");
  for (const auto* telling : {"you paid $12", "your diagnosis is open", "account 12345 is shown"})
    EXPECT_EQ(check(telling), R"({"private": true})");
}

TEST(PracticeReplies, gate) {
  const std::string declared = "at 15:00 they declared: \"write the \"best\" essay\", giving themselves 60 minutes — until 16:00";
  const std::string drift = "at 15:20 the classifier moved to NOT_ALIGNED, saying: \"the coach checked in at noon\"";
  const std::string asked = "the coach checked in at 15:25 because the classifier had said: \"x\"; they haven't replied";
  const std::string now =
      "the classifier's latest observation is from 15:32: NOT_ALIGNED, unchanged since 15:20 (12 minutes), Fire fox frontmost "
      "(window title \"Cats\"), saying: \"y\"";
  const struct { const char* name; std::string timeline; bool want; } cases[] = {
      {"drift nobody raised", declared + "\n" + drift + "\n" + now, true},
      {"raised after it began", declared + "\n" + drift + "\n" + asked + "\n" + now, false},
      {"raised before it began", declared + "\n" + asked + "\n" + drift + "\n" + now, true},
      {"on task", "the classifier's latest observation is from 15:32: ON_TASK", false},
      {"nothing at all", "(nothing has happened yet)", false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const auto text =
        PracticeReplies::gate("You decide whether Lark ...\n\nTimeline:\n" + c.timeline + "\nit is now 15:32.\n\nGiven everything");
    const auto reply = JSONValue::parse(text);
    ASSERT_TRUE(reply) << text;
    EXPECT_EQ(reply->find("should_check_in")->boolValue(), c.want);
    EXPECT_LT(text.find("summary_for_coach"), text.find("should_check_in"));
    if (!c.want) continue;
    EXPECT_EQ(
        *reply->find("summary_for_coach"),
        JSONValue("they have been in Fire fox for 12 minutes; declared task is write the \"best\" essay, set at 15:00; the classifier's "
                  "latest observation is NOT_ALIGNED"));
  }
}

TEST(PracticeReplies, whatTheyTaught) {
  const auto told = PracticeReplies::coach({.lastRole = "user", .last = "[15:00] don't ask twice", .toolNames = {"remember_correction"}});
  ASSERT_EQ(told.toolCalls.size(), 1u);
  EXPECT_EQ(told.toolCalls[0].arguments.dump(), R"({"correction":"don't ask twice","lasts":"until_changed"})");
  const std::string system = "You are Lark\n\nWhat you have been told before, and still applies:\n- a fact\n- no jokes (they told you this directly)";
  EXPECT_EQ(PracticeReplies::coach({.system = system, .lastRole = "user", .last = "[15:01] what have I told you?"}).text, "You told me: no jokes.");
}

TEST(PracticeReplies, coach) {
  const auto say = [](std::string last, std::string role = "user") {
    return PracticeReplies::coach(
        {.lastRole = std::move(role), .last = std::move(last), .toolNames = {"write_current_intention", "go_quiet"}});
  };
  const struct { const char *said, *notes; std::optional<int> minutes; } intentions[] = {
      {"[15:02] brb gonna knock out laundry for like 20 min", "knock out laundry", 20},
      {"[15:02] ok im switching to the labeler for an hour", "the labeler", 60},
      {"[15:02] No, I'm going to read chapter 3 for 1.5 hours.", "read chapter 3", 90},
      {"[9:02] earlier\n\n[15:02] let me draw for 10 minutes", "draw", 10},
      {"[15:02] i'll take a walk", "a walk", std::nullopt},
  };
  for (const auto& c : intentions) {
    const auto reply = say(c.said);
    ASSERT_EQ(reply.toolCalls.size(), 1u) << c.said;
    EXPECT_EQ(reply.toolCalls[0].name, "write_current_intention");
    EXPECT_EQ(*reply.toolCalls[0].arguments.find("notes"), JSONValue(c.notes));
    const auto* minutes = reply.toolCalls[0].arguments.find("horizon_minutes");
    EXPECT_EQ(minutes ? *minutes : JSONValue(), c.minutes ? JSONValue(*c.minutes) : JSONValue());
    EXPECT_NE(reply.text.find(c.notes), std::string::npos);
  }
  EXPECT_EQ(say("[15:02] please be quiet for half an hour").toolCalls.at(0).arguments.find("minutes")->numberValue(), 30);
  for (const auto* plain : {"[15:02] ok thanks", "[15:02] why do you ask", "[15:02] 20 minutes", "done"}) {
    EXPECT_TRUE(say(plain).toolCalls.empty()) << plain;
    EXPECT_FALSE(say(plain).text.empty()) << plain;
  }
  EXPECT_EQ(say("[15:00] hi\n\nIt's 15:02. The system's summary of what it observed: \"they have been in Firefox for 12 minutes; declared "
                "task is write, set "
                "at 15:00; x\"")
                .text,
            "You said write, and Firefox has been in front. Is that still what you mean to be doing?");
  EXPECT_TRUE(say("{\"ok\":true}", "tool").toolCalls.empty());
}

TEST(PracticeReplies, theRequestDecidesTheRule) {
  using PracticeReplies::Prompt;
  const struct { const char* messages; Prompt want; } cases[] = {
      {R"([{"role":"system","content":"You are an ambitude check. x"},{"role":"user","content":"y"}])", Prompt::classifier},
      {R"([{"role":"system","content":"You extract a time estimate from"},{"role":"user","content":"y"}])", Prompt::estimate},
      {R"([{"role":"system","content":"A classifier on this computer has just written one sentence explaining"}])", Prompt::reasonCheck},
      {R"([{"role":"system","content":"You are the coaching voice in Lark, the"},{"role":"user","content":"You decide whether Lark"}])",
       Prompt::coach},
      {R"([{"role":"user","content":"You decide whether Lark -- a"}])", Prompt::gate},
      {R"([{"role":"user","content":[{"type":"text","text":"see"},{"type":"image_url","image_url":{"url":"data:"}}]}])",
       Prompt::description},
      {R"([{"role":"user","content":"hello"}])", Prompt::other},
      {R"([])", Prompt::other},
  };
  for (const auto& c : cases) {
    const auto request = PracticeReplies::Request::from(JSONObject{{"messages", JSONValue::parse(c.messages).value()}});
    EXPECT_EQ(PracticeReplies::prompt(request), c.want) << c.messages;
    EXPECT_FALSE(PracticeReplies::reply(request).text.empty()) << c.messages;
  }
  EXPECT_EQ(PracticeReplies::schemaInstance(
                JSONValue::parse(R"({"type":"object","properties":{"a":{"enum":["x","y"]},"n":{"type":"integer","minimum":3},
    "b":{"type":"boolean"},"l":{"type":"array"},"o":{"type":"object","properties":{"s":{"type":"string"}}}}})")
                    .value()),
            R"({"a":"x","b":false,"l":[],"n":3,"o":{"s":"practice"}})");
}

TEST(PracticeScript, linesInOrder) {
  using PracticeReplies::Prompt;
  PracticeScript script(
      "{\"text\":\"a\",\"for\":\"gate\"}\n\n{\"text\":\"b\",\"delayMs\":5,\"tool_calls\":[{\"name\":\"t\"}]}\n{\"finish_reason\":"
      "\"length\"}\n");
  EXPECT_EQ(script.next(Prompt::coach), (PracticeScript::Line{.reply = {.text = "b", .toolCalls = {{.name = "t"}}}, .delayMs = 5}));
  EXPECT_EQ(script.next(Prompt::gate)->reply.text, "a");
  EXPECT_EQ(script.next(Prompt::gate)->finishReason, "length");
  EXPECT_EQ(script.next(Prompt::gate), std::nullopt);
  for (const auto* bad : {"{", "[]", "{\"for\":\"nobody\"}", "{\"tool_calls\":[{}]}", "{\"tool_calls\":1}"})
    EXPECT_THROW(PracticeScript{bad}, std::runtime_error) << bad;
}

}  // namespace
}  // namespace halvo
