#include <gtest/gtest.h>

#include "AmbitudeCore/Gate/GatePollingCadence.h"
#include "tests/AmbitudeCore/Gate/GateScene.h"

namespace halvo::GatePollingCadence {
namespace {

TEST(GatePollingCadence, classify) {
  const struct { std::optional<std::string> state; std::optional<double> idle; Regime want; } cases[] = {
      {"ON_TASK", 300.0, Regime::onTask},  {"ON_TASK", 300.1, Regime::away},   {std::nullopt, 301, Regime::away},
      {std::nullopt, {}, Regime::unknown}, {"IDLE", 0, Regime::away},          {"NOT_ALIGNED", {}, Regime::notAligned},
      {"NO_TASK", {}, Regime::noTask},     {"ABSTAINED", {}, Regime::unknown}, {"on_task", {}, Regime::unknown}};
  for (const auto& c : cases) EXPECT_EQ(classify(c.state, c.idle, 300), c.want) << c.state.value_or("absent") << " " << c.idle.value_or(-1);
}

TEST(GatePollingCadence, config) {
  for (const auto& [text, want] : {std::pair{"59", 600}, {"60", 60}, {" 900 ", 900}, {"+75", 75}, {"", 600}, {"9m", 600}, {"-900", 600}})
    EXPECT_EQ(Config::fromEnvironment({{"AMBITCAP_GATE_AWAY_MAX_INTERVAL_SEC", text}}).awayCeilingSec, want) << text;
  const auto sound = Config::make({.floorSec = 0, .awayCeilingSec = -1, .growthFactor = 0.5, .awaySec = -3, .boundaryLeadSec = -3});
  EXPECT_EQ(sound, (Config{1, 1, 300, 300, 1.0, 0, 0}));
}

TEST(GatePollingCadence, decide) {
  const State last{.lastConsultedAtMs = 1'000'000, .regime = Regime::onTask, .declaredTask = "essay", .intervalSec = 240};
  const auto moment = [](std::int64_t sec, Regime regime = Regime::onTask, std::optional<std::string> task = "essay", bool boundary = false,
                         bool meds = false) { return Moment{1'000'000 + sec * 1000, regime, std::move(task), boundary, meds}; };
  const struct { const char* name; std::optional<State> last; Moment now; Decision want; } cases[] = {
      {"nothing remembered", {}, moment(0), Consult{NoPriorState{}}},
      {"a second early", last, moment(239), Skip{1}},
      {"due", last, moment(240), Consult{IntervalElapsed{}}},
      {"the clock stepped back", last, moment(-3600), Skip{240}},
      {"a change of regime is not held to the floor", last, moment(1, Regime::notAligned),
       Consult{RegimeChanged{Regime::onTask, Regime::notAligned}}},
      {"another task", last, moment(1, Regime::onTask, "walk"), Consult{DeclaredTaskChanged{}}},
      {"no task any more", last, moment(1, Regime::onTask, std::nullopt), Consult{DeclaredTaskChanged{}}},
      {"the boundary holds a change to the floor", last, moment(59, Regime::notAligned, "essay", true), Skip{1}},
      {"the boundary, at the floor", last, moment(60, Regime::notAligned, "walk", true, true), Consult{BoundaryWindow{}}},
      {"medication, at the floor", last, moment(60, Regime::onTask, "essay", false, true), Consult{MedsAskDue{}}},
      {"medication can't be asked of someone away", State{1'000'000, Regime::away, "essay", 60},
       moment(59, Regime::away, "essay", false, true), Skip{1}},
      {"the boundary neither", last, moment(1, Regime::away, "essay", true), Consult{RegimeChanged{Regime::onTask, Regime::away}}},
      {"an interval from an older configuration", State{1'000'000, Regime::notAligned, "essay", 900},
       moment(60, Regime::notAligned), Consult{IntervalElapsed{}}}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(decide(c.last, c.now), c.want);
  }
}

TEST(GatePollingCadence, intervalsGrowWhileTheSituationHolds) {
  const auto intervals = [](Regime regime, bool boundary) {
    std::vector<std::int64_t> seen;
    std::optional<State> state;
    for (int round = 0; round < 5; ++round) {
      state = advanced(state, {.regime = regime, .boundaryWindowActive = boundary});
      seen.push_back(state->intervalSec);
    }
    return seen;
  };
  EXPECT_EQ(intervals(Regime::onTask, false), (std::vector<std::int64_t>{60, 120, 240, 300, 300}));
  EXPECT_EQ(intervals(Regime::away, false), (std::vector<std::int64_t>{60, 120, 240, 480, 600}));
  EXPECT_EQ(intervals(Regime::notAligned, false), (std::vector<std::int64_t>{60, 60, 60, 60, 60}));
  EXPECT_EQ(intervals(Regime::onTask, true), (std::vector<std::int64_t>{60, 60, 60, 60, 60}));
  EXPECT_EQ(intervals(Regime::away, true)[4], 600) << "the boundary means nothing to someone away";
  EXPECT_EQ(advanced(State{0, Regime::onTask, {}, 300}, {.regime = Regime::notAligned}).intervalSec, 60);
  EXPECT_EQ(nextInterval(90, true, Regime::onTask, {.growthFactor = 1.5}), 135);
  EXPECT_EQ(nextInterval(61, true, Regime::onTask, {.growthFactor = 1.01}), 62) << "rounded up";
  EXPECT_EQ(nextInterval(1e18, true, Regime::onTask, {.growthFactor = 1e300}), 300);
}

TEST(GatePollingCadence, latestInput) {
  using namespace GateScene;
  EXPECT_EQ(latestInputTsMs({}, {}), std::nullopt);
  const std::vector ticks{tick(at(14, 0), "ON_TASK"), ClassifierTick{.at = "garbled"}};
  const std::vector events{event(at(13, 0), "task_cleared"), event(at(15, 0), "in_call_began"), event(at(16, 0), "coach_turn_failed")};
  EXPECT_EQ(latestInputTsMs(events, ticks), at(14, 0)) << "bookkeeping is no input";
  EXPECT_EQ(latestInputTsMs(events, {}), at(13, 0));
}

TEST(WakeGuard, consumesInputOnlyWhenItConsults) {
  WakeGuard guard;
  EXPECT_EQ(guard.evaluate(std::nullopt, {.nowMs = 0}), WakeGuard::Outcome(Consult{NoPriorState{}})) << "an empty log still consults once";
  guard = {};
  EXPECT_EQ(guard.evaluate(100, {.nowMs = 0}), WakeGuard::Outcome(Consult{NoPriorState{}}));
  EXPECT_EQ(guard.evaluate(100, {.nowMs = 900'000}), WakeGuard::Outcome(WakeGuard::NoNewInput{})) << "whatever the interval says";
  const auto before = guard;
  EXPECT_EQ(guard.evaluate(101, {.nowMs = 59'000}), WakeGuard::Outcome(Skip{1}));
  EXPECT_EQ(guard, before) << "seen again at the next wake";
  EXPECT_EQ(guard.evaluate(101, {.nowMs = 60'000}), WakeGuard::Outcome(Consult{IntervalElapsed{}}));
  EXPECT_EQ(guard.lastConsumedInputTsMs, 101);
  EXPECT_EQ(logLine(guard.evaluate(102, {.nowMs = 61'000, .regime = Regime::away})),
            "layer3 gate cadence: consult, regime changed from unknown to away");
}

}  // namespace
}  // namespace halvo::GatePollingCadence
