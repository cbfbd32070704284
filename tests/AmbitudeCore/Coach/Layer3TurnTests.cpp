#include <gtest/gtest.h>

#include <chrono>

#include "AmbitudeCore/Backends/ModelBackendError.h"
#include "AmbitudeCore/Coach/CoachTools.h"
#include "AmbitudeCore/Coach/Layer3CoachLoop.h"
#include "AmbitudeCore/Coach/TurnFailureBackoff.h"
#include "AmbitudeCore/Coach/TurnTimeout.h"
#include "CaptureShared/Net/TransportText.h"
#include "tests/AmbitudeCore/Coach/ScriptedBackend.h"
#include "tests/AmbitudeCore/Gate/GateScene.h"

namespace halvo {
namespace {

using GateScene::calendar;

ToolCall tea() { return {"write_current_intention", JSONObject{{"notes", "tea <|turn>"}}}; }
ToolCall noQuiet() { return {"go_quiet", JSONObject{{"message", "Quiet till 4."}}}; }

TEST(Layer3CoachLoop, callsWithoutWordsAreAnsweredAndAskedOnceMore) {
  const struct { const char* name; ChatResponse first; bool isAskedAgain; } cases[] = {
      {"words and a call", {.text = "Noted.", .toolCalls = {tea()}}, false},
      {"a call alone", {.text = " ", .toolCalls = {tea()}}, true},
      {"a call whose message serves", {.toolCalls = {{"go_quiet", JSONObject{{"minutes", 9}, {"message", "Ok."}}}}}, false},
      {"a refused call's message does not", {.toolCalls = {noQuiet()}}, true},
      {"calls of no tool", {.toolCalls = {{"sudo", JSONObject{}}}}, false},
      {"cut off", {.toolCalls = {tea()}, .truncated = true}, false},
      {"nothing", {}, false}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    test::ScriptedBackend backend;
    backend.answer = [&](const auto& call, const auto&) {
      if (call.messages.size() == 1) {
        auto first = c.first;
        first.usage = ChatUsage{.promptTokens = 10, .completionTokens = 1}, first.thinking = "one";
        return first;
      }
      return ChatResponse{
          .text = "Done.", .toolCalls = {tea()}, .thinking = "two", .usage = ChatUsage{.promptTokens = 20, .completionTokens = 2}};
    };
    const auto response = Layer3CoachLoop::runTurn({.messages = {ChatMessage::user("[15:00] tea")}, .tools = Layer3Tools::all()}, backend,
                                                   calendar, [](const ModelStreamDelta&) {}, {});
    const auto calls = backend.calls();
    ASSERT_EQ(calls.size(), c.isAskedAgain ? 2u : 1u);
    if (!c.isAskedAgain) continue;
    EXPECT_EQ(response.text, "Done.");
    EXPECT_EQ(response.toolCalls.size(), 2u);
    EXPECT_EQ(response.toolCalls[0], c.first.toolCalls[0]) << "as it was called, for the record";
    EXPECT_EQ(response.thinking, "one\n\ntwo");
    EXPECT_EQ(response.usage->promptTokens, 30);
    EXPECT_EQ(response.usage->callCount, 2);
    ASSERT_EQ(calls[1].messages.size(), 3u);
    EXPECT_EQ(calls[1].tools, Layer3Tools::all());
    const auto& answered = calls[1].messages[2];
    EXPECT_EQ(answered.toolName, c.first.toolCalls[0].name);
    EXPECT_TRUE(answered.content.starts_with(c.first.toolCalls[0] == tea() ? "Recorded: tea < |turn> with" : "Not applied — "))
        << answered.content;
    EXPECT_EQ(calls[1].messages[1].toolCalls->at(0).arguments.dump().find("<|turn>"), std::string::npos);
  }
}

TEST(TurnTimeout, run) {
  const auto untilStopped = [](const std::stop_token& stop) -> int {
    Clock::system().wait(20, stop);
    throwIfStopped(stop);
    return 1;
  };
  const auto began = std::chrono::steady_clock::now();
  try {
    TurnTimeout::run(0.05, {}, untilStopped);
    FAIL() << "it should have taken too long";
  } catch (const TurnTimeout::Exceeded& exceeded) {
    EXPECT_EQ(exceeded.seconds(), 0.05);
    EXPECT_STREQ(exceeded.what(), "the turn took longer than 0.05 s");
  }
  std::stop_source outer;
  std::jthread later([&] { outer.request_stop(); });
  EXPECT_THROW(TurnTimeout::run(20, outer.get_token(), untilStopped), Cancelled) << "the caller's stop is no failed turn";
  EXPECT_THROW(TurnTimeout::run(20, {}, [](const auto&) -> int { throw std::logic_error("x"); }), std::logic_error);
  EXPECT_EQ(TurnTimeout::run(20, {}, [](const auto&) { return 7; }), 7);
  EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(5)) << "no timer outlives its turn";
}

TEST(TurnFailureBackoff, doublesForTheSameCause) {
  TurnFailureBackoff backoff;
  std::vector<double> intervals;
  for (int i = 0; i < 7; ++i) intervals.push_back(backoff.recordFailure(5, 1'000'000).interval);
  EXPECT_EQ(intervals, (std::vector<double>{30, 60, 120, 240, 480, 600, 600}));
  EXPECT_EQ(backoff.isBlocked(5, 1'000'000 + 599'001).remainingSec, 1);
  EXPECT_FALSE(backoff.isBlocked(5, 1'000'000 + 600'000).blocked);
  EXPECT_FALSE(backoff.isBlocked(6, 1'000'000).blocked) << "another message";
  EXPECT_FALSE(backoff.isBlocked(std::nullopt, 1'000'000).blocked);
  for (int i = 0; i < 100; ++i) EXPECT_EQ(backoff.recordFailure(std::nullopt, 0).interval, 600);
  EXPECT_TRUE(backoff.isBlocked(std::nullopt, 0).blocked);
  backoff.recordSuccess();
  EXPECT_FALSE(backoff.isBlocked(std::nullopt, 0).blocked);
  EXPECT_EQ(backoff.recordFailure(5, 0).consecutiveFailures, 1);
}

TEST(CoachTurnFailureCopy, onlyWhoWaitsIsTold) {
  const auto refused = ModelBackendError::httpError(500, "key sk-secret");
  for (const std::exception* error : std::initializer_list<const std::exception*>{&refused}) {
    EXPECT_FALSE(CoachTurnFailureCopy::userReason(*error, ChatTurn::background));
    EXPECT_EQ(CoachTurnFailureCopy::userReason(*error, ChatTurn::reply), CoachTurnFailureCopy::noReply(ChatTurn::reply));
  }
  EXPECT_TRUE(CoachTurnFailureCopy::userReason(TurnTimeout::Exceeded(330), ChatTurn::reply)->starts_with("The coach took too long"));
  EXPECT_TRUE(CoachTurnFailureCopy::userReason(ModelBackendError::transportError(TransportText::timedOut("x")), ChatTurn::reply)
                  ->starts_with("The coach took too long"));
  EXPECT_TRUE(CoachTurnFailureCopy::userReason(ModelBackendError::transportError("no route"), ChatTurn::reply)
                  ->starts_with("The coach can't be reached"));
}

}  // namespace
}  // namespace halvo
