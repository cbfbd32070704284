#include <gtest/gtest.h>

#include "AmbitudeCore/Gate/CoachGate.h"
#include "AmbitudeCore/Gate/CoachGateSchema.h"
#include "AmbitudeCore/Gate/GateUnconstrainedFlag.h"
#include "CaptureShared/Foundation/Clock.h"
#include "tests/AmbitudeCore/Backends/Decorators/ScriptedBackend.h"

namespace halvo {
namespace {

const GateOutcome mail = GateDecided{{.summaryForCoach = "they are in Mail", .shouldCheckIn = false}};
const std::string mailReply = R"(Sure! {"summary_for_coach":"they are in Mail","should_check_in":false} Hope that helps)";

TEST(CoachGateSchema, parse) {
  const struct { std::string text; GateOutcome want; } cases[] = {
      {mailReply, mail},
      {"```json\n{\"should_check_in\":true,\"summary_for_coach\":\"s\"}\n```", GateDecided{{"s", true}}},
      {" \n", GateFailed{"empty response"}},
      {"}{", GateFailed{"no JSON object found"}},
      {"no", GateFailed{"no JSON object found"}},
      {"{\"a\":1", GateFailed{"no JSON object found"}},
      {"{a} and {b}", GateFailed{"not a JSON object"}},
      {R"({"should_check_in":true})", GateFailed{"missing or non-string `summary_for_coach`"}},
      {R"({"summary_for_coach":1,"should_check_in":true})", GateFailed{"missing or non-string `summary_for_coach`"}},
      {R"({"summary_for_coach":"s"})", GateFailed{"missing or non-boolean `should_check_in`"}},
      {R"({"summary_for_coach":"s","should_check_in":"true"})", GateFailed{"missing or non-boolean `should_check_in`"}},
      {R"({"summary_for_coach":"s","should_check_in":1})", GateFailed{"missing or non-boolean `should_check_in`"}}};
  for (const auto& c : cases) EXPECT_EQ(CoachGateSchema::parse(c.text), c.want) << c.text;
}

TEST(CoachGateSchema, keyOrderAndSecondPerson) {
  using namespace CoachGateSchema;
  EXPECT_TRUE(keyOrderIsCorrect(schemaJSON().substr(schemaJSON().find("properties"))));
  EXPECT_TRUE(keyOrderIsCorrect(mailReply));
  EXPECT_FALSE(keyOrderIsCorrect(R"({"should_check_in":true,"summary_for_coach":"s"})"));
  EXPECT_FALSE(keyOrderIsCorrect(R"({"summary_for_coach":"s"})"));
  const auto schema = JSONValue::parse(schemaJSON());
  ASSERT_TRUE(schema);
  EXPECT_EQ(*schema->find("additionalProperties"), JSONValue(false));
  for (const auto* hit : {"Your task", "when YOU left", "you've", "it is yours."}) EXPECT_TRUE(summaryAddressesSecondPerson(hit)) << hit;
  for (const auto* miss : {"yourself", "youth club", "they said", ""}) EXPECT_FALSE(summaryAddressesSecondPerson(miss)) << miss;
}

TEST(GateUnconstrainedFlag, onUnlessSwitchedOff) {
  EXPECT_TRUE(GateUnconstrainedFlag::isArmed({}));
  for (const auto& [text, want] : {std::pair{"", true}, {"1", true}, {"off", true}, {"0", false}, {" False\n", false}, {"NO", false}})
    EXPECT_EQ(GateUnconstrainedFlag::isArmed({{"AMBITCAP_GATE_UNCONSTRAINED", text}}), want) << text;
}

using test::ScriptedBackend;
using Script = std::vector<ScriptedBackend::Step>;

bool askedFreely(const ScriptedBackend& backend, std::size_t call) { return !backend.calls.at(call).responseSchemaJSON; }

struct Told {
  std::vector<std::string> retries;
  int usages = 0, errors = 0;
};

GateOutcome decide(ScriptedBackend& backend, Told& told, GateUnconstrainedBreaker* breaker = nullptr, bool unconstrained = true) {
  const auto outcome = CoachGate::decide(
      backend, {.message = "THE MESSAGE",
                .maxTokens = 77,
                .sessionID = "session",
                .unconstrained = unconstrained,
                .breaker = breaker,
                .onUsage = [&](const ChatResponse&) { ++told.usages; },
                .onUnconstrainedRetry = [&](const std::string& line) { told.retries.push_back(line); },
                .onBackendError = [&](const std::exception&) { ++told.errors; }});
  EXPECT_EQ(backend.messages, std::vector{ChatMessage::user("THE MESSAGE")});
  EXPECT_TRUE(backend.tools.empty());
  return outcome;
}

ScriptedBackend::Step reply(std::string text, bool truncated = false) {
  return {.response = {.text = std::move(text), .truncated = truncated}};
}
const auto refused = ModelBackendError::httpError(500, "key sk-abcdefghijkl is wrong");
const auto fails = ScriptedBackend::fails(refused);

TEST(CoachGate, decide) {
  const struct {
    const char* name;
    Script answers;
    bool unconstrained;
    GateOutcome want;
    std::size_t calls;
    std::vector<std::string> retries;
    int errors;
  } cases[] = {
      {"readable at once", {reply(mailReply)}, true, mail, 1, {}, 0},
      {"unreadable, then under the schema", {reply("hm\nno sk-abcdefghijkl"), reply(mailReply)}, true, mail, 2,
       {"no JSON object found (raw: hm no [redacted])"}, 0},
      {"cut off, though it could be read", {reply(mailReply, true), reply("")}, true, GateFailed{"empty response"}, 2,
       {"truncated response (raw: " + mailReply + ")"}, 0},
      {"both cut off", {reply("", true), reply("{}", true)}, true, GateFailed{"truncated response"}, 2, {"truncated response (raw: )"}, 0},
      {"a backend that fails is not asked again", {fails}, true, GateFailed{"backend: " + describeError(refused)}, 1, {}, 1},
      {"it fails under the schema", {reply(""), fails}, true, GateFailed{"backend: " + describeError(refused)}, 2,
       {"empty response (raw: )"}, 1},
      {"schema only", {reply(mailReply)}, false, mail, 1, {}, 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    ScriptedBackend backend(c.answers);
    Told told;
    EXPECT_EQ(decide(backend, told, nullptr, c.unconstrained), c.want);
    ASSERT_EQ(backend.calls.size(), c.calls);
    EXPECT_EQ(told.retries, c.retries);
    EXPECT_EQ(told.errors, c.errors);
    EXPECT_EQ(told.usages + told.errors, static_cast<int>(c.calls));
    EXPECT_EQ(askedFreely(backend, 0), c.unconstrained);
    ChatOptions want{.maxTokens = 77, .think = true, .sessionID = "session", .turn = ChatTurn::background};
    if (!askedFreely(backend, c.calls - 1)) want.responseSchemaJSON = CoachGateSchema::schemaJSON();
    EXPECT_EQ(backend.calls.back(), want);
  }
  EXPECT_EQ(describeError(refused).find("sk-abc"), std::string::npos);
}

TEST(CoachGate, longRepliesAreCutInTheLogAndCancellingIsNoOutcome) {
  Told told;
  // 302 characters of which the secret straddles the cut: redacted first, so nothing of it is left.
  ScriptedBackend backend({reply(std::string(290, 'x') + " sk-" + std::string(40, 'k') + " tail"), reply(mailReply)});
  decide(backend, told);
  EXPECT_EQ(told.retries.at(0), "no JSON object found (raw: " + std::string(290, 'x') + " [redacted…(306 chars))");
  ScriptedBackend stopped({{.error = std::make_exception_ptr(Cancelled())}});
  EXPECT_THROW(decide(stopped, told), Cancelled);
}

TEST(GateUnconstrainedBreaker, backsOffAndRecovers) {
  GateUnconstrainedBreaker breaker(8);
  Told told;
  std::vector<int> skips;
  for (int failure = 0; failure < 5; ++failure) {
    ScriptedBackend backend({reply("?"), reply(mailReply)});
    decide(backend, told, &breaker);
    ASSERT_EQ(backend.calls.size(), 2u);
    skips.push_back(breaker.counters().skipsRemaining);
    while (breaker.counters().skipsRemaining > 0) {
      ScriptedBackend constrained({reply(mailReply)});
      EXPECT_EQ(decide(constrained, told, &breaker), mail);
      EXPECT_FALSE(askedFreely(constrained, 0)) << "a success under the schema proves nothing about the other road";
    }
  }
  EXPECT_EQ(skips, (std::vector{1, 2, 4, 8, 8}));
  ASSERT_EQ(told.retries.size(), 5u);
  EXPECT_EQ(told.retries[1],
            "no JSON object found (raw: ?) — skipping the unconstrained attempt for the next 2 tick(s) [consecutiveFailures=2, "
            "ticksSinceLastUnconstrainedSuccess=3]");
  EXPECT_EQ(told.retries[3].find("STUCK"), std::string::npos);
  EXPECT_TRUE(told.retries[4].starts_with("GATE UNCONSTRAINED STUCK AT CEILING: no JSON object found"));
  EXPECT_EQ(breaker.counters(), (GateUnconstrainedBreaker::Counters{5, 0, 28})) << "5 attempts and 23 skips";

  ScriptedBackend untouched({reply("?")});
  decide(untouched, told, &breaker, false);
  EXPECT_EQ(breaker.counters().ticksSinceLastSuccess, 28) << "switched off, the breaker is never asked";
  ScriptedBackend well({reply(mailReply)});
  decide(well, told, &breaker);
  EXPECT_EQ(breaker.counters(), GateUnconstrainedBreaker::Counters{});
}

}  // namespace
}  // namespace halvo
