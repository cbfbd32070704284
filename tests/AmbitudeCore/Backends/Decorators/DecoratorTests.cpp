#include <chrono>
#include <memory>
#include <thread>

#include <gtest/gtest.h>

#include "AmbitudeCore/Backends/CoachServiceError.h"
#include "AmbitudeCore/Backends/Decorators/Debouncer.h"
#include "AmbitudeCore/Backends/Decorators/FallbackModelBackend.h"
#include "AmbitudeCore/Backends/Decorators/RetryingModelBackend.h"
#include "AmbitudeCore/Backends/Decorators/ThinkingOverflowRetryBackend.h"
#include "tests/AmbitudeCore/Backends/Decorators/ScriptedBackend.h"
#include "tests/support/Eventually.h"

namespace halvo {
namespace {

using test::badRequest, test::gone, test::played, test::ScriptedBackend, test::timedOut;
using Lines = std::vector<std::string>;
using Script = std::vector<ScriptedBackend::Step>;
const auto says = [](const std::string& text, int promptTokens = 1) { return ScriptedBackend::says(text, promptTokens); };
const auto cutOff = [](const std::string& text, int promptTokens = 1) { return ScriptedBackend::cutOff(text, promptTokens); };
const auto fails = [](const ModelBackendError& error) { return ScriptedBackend::fails(error); };
const auto sink = [](Lines& lines) { return [&lines](const std::string& line) { lines.push_back(line); }; };
using Kind = CoachServiceError::Kind;

ScriptedBackend::Step service(Kind kind, bool retryable = false) {
  return {.error = std::make_exception_ptr(CoachServiceError(kind, "the service says no", retryable))};
}

TEST(RetryingModelBackend, retriesBySchedule) {
  const auto again = [](const char* attempt, const std::string& error, int sec) {
    return "m unreachable (attempt " + std::string(attempt) + "): " + error + " -- retrying in up to " + std::to_string(sec) + "s";
  };
  const std::string broken = "transport: gone", late = timedOut.what();
  const std::string tooLate =
      "m: timed out on attempt 2/4 after already paying the full wait -- not retrying further, escalating instead of burning another "
      "full-length wait";
  const std::string interrupted = "m: retry wait interrupted -- giving up on this call rather than waiting further";
  const struct {
    const char* name;
    Script script;
    int attempts;
    std::vector<double> schedule;
    std::string reply;
    std::vector<double> ticks;
    Lines log;
    std::size_t waitsFor = 1000;  ///< ticks that `shouldKeepWaiting` allows
  } cases[] = {
      {"one attempt: thrown without a line", {fails(gone)}, 1, {2}, broken, {}, {}},
      {"not retryable", {fails(badRequest)}, 3, {2}, "http 400: bad", {}, {}},
      {"a foreign error", {{.error = std::make_exception_ptr(std::runtime_error("odd"))}}, 3, {2}, "odd", {}, {}},
      {"the service's own flag", {service(Kind::refused, true), says("ok")}, 2, {0.5}, "ok", {0.5}, {again("1/2", "the service says no", 0)}},
      {"a second timeout never waits", {fails(timedOut)}, 4, {1}, late, {1}, {again("1/4", late, 1), tooLate}},
      {"the last entry stands for all behind it", {fails(gone)}, 4, {1.5, 2}, broken, {1, 0.5, 1, 1, 1, 1},
       {again("1/4", broken, 1), again("2/4", broken, 2), again("3/4", broken, 2)}},
      {"the wait is interrupted", {fails(gone)}, 4, {8}, broken, {1, 1}, {again("1/4", broken, 8), interrupted}, 2},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Lines log;
    std::vector<double> ticks;
    RetryingModelBackend backend(std::make_shared<ScriptedBackend>(c.script),
                                 {.name = "m",
                                  .maxAttempts = c.attempts,
                                  .backoffSeconds = c.schedule,
                                  .shouldKeepWaiting = [&] { return ticks.size() < c.waitsFor; },
                                  .sleepTick = [&](double sec, const std::stop_token&) { ticks.push_back(sec); },
                                  .log = sink(log)});
    EXPECT_EQ(played(backend).reply, c.reply);
    EXPECT_EQ(ticks, c.ticks);
    EXPECT_EQ(log, c.log);
  }
  EXPECT_THROW(RetryingModelBackend(nullptr, {.maxAttempts = 2}), std::logic_error);
}

TEST(RetryingModelBackend, laterAttemptsReplaceWhatWasShown) {
  const auto falters = [](std::vector<std::string> pieces) { return ScriptedBackend::fails(gone, std::move(pieces)); };
  auto thrice = says("done");
  thrice.pieces = {"do", "ne"};
  const Script scripts[] = {{falters({"a", "b"}), falters({"c"}), thrice}, {falters({}), thrice}, {falters({"a"}), falters({}), thrice}};
  for (const auto& script : scripts) {
    RetryingModelBackend backend(std::make_shared<ScriptedBackend>(script), {.maxAttempts = 3, .backoffSeconds = {0}});
    EXPECT_EQ(played(backend).shown, "done");
  }
}

TEST(RetryingModelBackend, aStopEndsTheBackOffAtOnce) {
  const auto primary = std::make_shared<ScriptedBackend>(Script{fails(gone)});
  std::stop_source stop;
  std::jthread stopper;
  RetryingModelBackend backend(primary, {.maxAttempts = 3, .backoffSeconds = {30}, .log = [&](const std::string&) {
                                           stopper = std::jthread([&] { stop.request_stop(); });
                                         }});
  const auto start = std::chrono::steady_clock::now();
  EXPECT_THROW(backend.chat({}, {}, {}, stop.get_token()), Cancelled);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
  EXPECT_EQ(primary->calls.size(), 1u);
}

/// A fallback stack of two scripts on a hand-moved clock.
struct Pair {
  std::shared_ptr<ScriptedBackend> primary, spare;
  std::int64_t nowMs = 1'000'000;
  Lines log;
  std::shared_ptr<FallbackModelBackend> backend;
  Pair(Script first, Script second, bool escalates = false)
      : primary(std::make_shared<ScriptedBackend>(std::move(first))), spare(std::make_shared<ScriptedBackend>(std::move(second))) {
    backend = std::make_shared<FallbackModelBackend>(primary, spare,
                                                     FallbackModelBackend::Settings{.primaryName = "far",
                                                                                    .fallbackName = "near",
                                                                                    .escalateTruncatedPrimary = escalates,
                                                                                    .nowMs = [this] { return nowMs; },
                                                                                    .log = sink(log)});
  }
};

TEST(FallbackModelBackend, whoAnswers) {
  const auto unreachable = FallbackCause::unreachable, paced = FallbackCause::paced;
  const auto away = [](const std::string& error) {
    return "model backend: far unreachable (" + error + ") — falling back to near for this turn, and for the next 60s";
  };
  const std::string recut = "model backend: far's reply was cut off (truncated, 2 reply chars) -- re-running this call on near";
  const std::string kept = "model backend: near failed too (http 400: bad) -- keeping far's truncated reply";
  const std::string limited = "model backend: far rate-limited this call — near answers it; the next call asks far again";
  const struct {
    const char* name;
    ScriptedBackend::Step primary, spare;
    bool escalates;
    std::string reply, servedBy;
    std::optional<FallbackCause> cause;
    Lines log;
    std::size_t primaryCallsOfTwo;  ///< when the same is asked again a second later
    int promptTokens = 1;
  } cases[] = {
      {"well", says("Hi"), says("no"), true, "Hi", "far", {}, {}, 2},
      {"cut off, kept as it is", cutOff("Hi", 3), says("no"), false, "Hi", "far", {}, {}, 2, 3},
      {"cut off, asked for again: both calls are paid", cutOff("Hé", 3), says("whole", 4), true, "whole", "near", {}, {recut}, 2, 7},
      {"cut off, and the spare fails", cutOff("Hé", 3), fails(badRequest), true, "Hé", "far", {}, {recut, kept}, 2, 3},
      {"unreachable", fails(gone), says("Hi"), false, "Hi", "near", unreachable, {away("transport: gone")}, 1},
      {"both fail: the spare's error", fails(gone), fails(badRequest), false, "http 400: bad", "", {}, {away("transport: gone")}, 1},
      {"not retryable", fails(badRequest), says("no"), false, "http 400: bad", "", {}, {}, 2},
      {"paced by the service", service(Kind::rateLimited, true), says("Hi"), false, "Hi", "near", paced, {limited}, 2},
      {"sent elsewhere by the service", service(Kind::routeDirective, true), says("Hi"), false, "Hi", "near", paced, {}, 2},
      {"refused by the service", service(Kind::refused), says("no"), false, "the service says no", "", {}, {}, 2},
      {"no service", service(Kind::refused, true), says("Hi"), false, "Hi", "near", unreachable, {away("the service says no")}, 1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Pair pair({c.primary}, {c.spare}, c.escalates);
    const auto result = played(*pair.backend);
    EXPECT_EQ(result.reply, c.reply);
    EXPECT_EQ(result.response.servedBy.value_or(""), c.servedBy);
    EXPECT_EQ(result.response.servedByFallback, c.servedBy == "near");
    EXPECT_EQ(result.response.fallbackCause, c.cause);
    EXPECT_EQ(result.response.usage.value_or(ChatUsage{.promptTokens = 1}).promptTokens, c.promptTokens);
    EXPECT_EQ(pair.log, c.log);
    pair.nowMs += 1000;
    played(*pair.backend);
    EXPECT_EQ(pair.primary->calls.size(), c.primaryCallsOfTwo);
  }
}

TEST(FallbackModelBackend, aCooldownLeavesThePrimaryAlone) {
  Pair streamed({ScriptedBackend::fails(gone, {"H", "el"})}, {says("Hi")});
  EXPECT_EQ(played(*streamed.backend).shown, "Hi") << "what was shown is replaced, not continued";
  Pair pair({fails(gone), says("back")}, {says("Hi")});
  played(*pair.backend);
  pair.nowMs += 59'999;
  const auto cooled = played(*pair.backend).response;
  EXPECT_EQ(cooled.fallbackCause, FallbackCause::unreachable);
  EXPECT_EQ(pair.log.back(), "model backend: far still in cooldown after a reachability failure, using near without retrying it");
  EXPECT_EQ(pair.primary->calls.size(), 1u);
  pair.nowMs -= 3'600'000;  // the clock was set back: a cooldown more, not an hour
  EXPECT_EQ(played(*pair.backend).reply, "Hi");
  pair.nowMs += 60'000;
  EXPECT_EQ(played(*pair.backend).reply, "back");
}

TEST(Decorators, aCancelledCallGoesNoFurther) {
  enum { retrying, fallback, overflow };
  const auto ended = ScriptedBackend::Step{.error = std::make_exception_ptr(Cancelled())};
  const struct { int decorator; ScriptedBackend::Step step; std::string reply; } cases[] = {
      {retrying, fails(gone), "cancelled"}, {retrying, ended, "cancelled"}, {fallback, fails(gone), "cancelled"},
      {fallback, ended, "cancelled"},       {fallback, cutOff("Hi"), "Hi"}, {overflow, cutOff("Hi"), "Hi"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.reply + std::to_string(c.decorator));
    Lines log;
    std::stop_source stop;
    const auto inner = std::make_shared<ScriptedBackend>(Script{c.step});
    inner->during = [&] { stop.request_stop(); };
    const std::shared_ptr<ModelBackend> decorators[] = {
        std::make_shared<RetryingModelBackend>(inner,
                                               RetryingModelBackend::Settings{.maxAttempts = 3, .backoffSeconds = {0}, .log = sink(log)}),
        std::make_shared<FallbackModelBackend>(inner, inner,
                                               FallbackModelBackend::Settings{.escalateTruncatedPrimary = true, .log = sink(log)}),
        std::make_shared<ThinkingOverflowRetryBackend>(inner, "m", sink(log))};
    auto& backend = *decorators[c.decorator];
    EXPECT_EQ(played(backend, {}, stop.get_token()).reply, c.reply);
    EXPECT_EQ(played(backend, {}, stop.get_token()).reply, "cancelled");
    EXPECT_EQ(inner->calls.size(), 1u) << "asked again after a stop";
    EXPECT_EQ(log, Lines{});
  }
}

TEST(ThinkingOverflowRetryBackend, asksOnceMoreWithoutThinking) {
  auto full = cutOff("par", 3);
  full.response.thinking = "hmmm";
  const std::string first =
      "m: reply cut off with thinking on (4 thinking chars, 3 reply chars) -- the model's context filled before it answered. Retrying once "
      "with thinking off.";
  const std::string again = "m: the thinking-off retry was cut off too (2 reply chars)";
  const std::string failed = "m: the thinking-off retry failed (transport: gone) -- keeping the truncated first reply";
  const struct { const char* name; bool thinks; Script script; std::string reply, shown; int promptTokens; Lines log; } cases[] = {
      {"cut off without thinking", false, {full}, "par", "par", 3, {}},
      {"rescued", true, {full, says("ok", 4)}, "ok", "ok", 7, {first}},
      {"cut off again", true, {full, cutOff("pa", 4)}, "pa", "pa", 7, {first, again}},
      {"the second call fails", true, {full, fails(gone)}, "par", "par", 3, {first, failed}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Lines log;
    const auto inner = std::make_shared<ScriptedBackend>(c.script);
    ThinkingOverflowRetryBackend backend(inner, "m", sink(log));
    const auto result = played(backend, {.think = c.thinks, .seed = 5});
    EXPECT_EQ(result.reply, c.reply);
    EXPECT_EQ(result.shown, c.shown);
    EXPECT_EQ(result.response.usage->promptTokens, c.promptTokens);
    EXPECT_EQ(log, c.log);
    ASSERT_EQ(inner->calls.size(), c.log.empty() ? 1u : 2u);
    EXPECT_EQ(inner->calls.back(), (ChatOptions{.think = c.thinks && c.log.empty(), .seed = 5}));
  }
}

TEST(Debouncer, runsOnceThingsAreQuiet) {
  std::atomic<int> runs{0};
  {
    Debouncer debouncer(0.05, [&] { ++runs; });
    for (int i = 0; i < 100; ++i) debouncer.trigger();
    EXPECT_TRUE(test::eventually([&] { return runs == 1; }));
    debouncer.trigger();
    EXPECT_TRUE(test::eventually([&] { return runs == 2; }));
  }
  Debouncer(60, [&] { ++runs; }).trigger();
  EXPECT_EQ(runs, 2) << "its end gives up what is pending";
}

}  // namespace
}  // namespace halvo
