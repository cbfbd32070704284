#include "AmbitudeCore/Classifier/ClassifierCadence.h"

#include <gtest/gtest.h>

#include <limits>

#include "AmbitudeCore/Classifier/ClassifierBatterySettings.h"
#include "AmbitudeCore/Classifier/ClassifierPowerPolicy.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/Match.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {

using namespace ClassifierCadence;

constexpr std::int64_t start = 1'700'000'000'000;

/// Judged at `start` in a run as old as it, with everything as `look` sees it.
State steady() {
  return {.lastRanAtMs = start,
          .lastJudgedAtMs = start,
          .runStartedAtMs = start,
          .lastVerdict = "ON_TASK",
          .lastFrontmostApp = "Editor",
          .lastWindowTitle = "essay"};
}

Moment look(std::int64_t afterSec, std::optional<State> last = steady()) {
  return {.nowMs = start + afterSec * 1000, .last = std::move(last), .frontmostApp = "Editor", .windowTitle = "essay"};
}

template <class Change>
auto with(auto value, Change change) {
  change(value);
  return value;
}

std::string shown(const Decision& decision) {
  return match(
      decision, [](const Judge& judge) { return std::string(rawValue(judge.reason)); },
      [](const Skip& skip) { return "skip " + std::to_string(skip.dueInSec); });
}

TEST(ClassifierCadence, decide) {
  const struct { const char* name; Moment moment; Config config; const char* want; } cases[] = {
      {"never judged", look(0, {}), {}, "no prior tick"},
      {"before the floor", look(59), {}, "skip 1"},
      {"at the floor", look(60), {}, "interval elapsed"},
      {"part of a second does not count", with(look(59), [](auto& m) { m.nowMs += 999; }), {}, "skip 1"},
      {"a call is over, whatever else", with(look(1), [](auto& m) { m.last->pausedForCall = true; }), {}, "resumed after a call"},
      {"one second under the ceiling", with(look(299), [](auto& m) { m.frontmostApp = "Mail"; }), {}, "frontmost app changed"},
      {"the ceiling comes before a change", with(look(300), [](auto& m) { m.frontmostApp = "Mail"; }), {}, "ceiling reached"},
      {"the on-task ceiling never fires rule three", look(121), {.floorSec = 130, .ceilingSec = 300, .onTaskCeilingSec = 130}, "skip 9"},
      {"clock set back", look(-500), {}, "skip 60"},
      {"estimate due since the last pass", with(look(5), [](auto& m) { m.episode.estimateBoundaryMs = start + 3000; }), {},
       "declared estimate came due"},
      {"estimate due, seen before", with(look(5), [](auto& m) { m.episode.estimateBoundaryMs = start - 3000; }), {}, "skip 55"},
      {"app gone", with(look(5), [](auto& m) { m.frontmostApp.reset(); }), {}, "frontmost app changed"},
      {"app before title", with(look(5), [](auto& m) { m.frontmostApp = "Mail", m.windowTitle = "x"; }), {}, "frontmost app changed"},
      {"title gone", with(look(5), [](auto& m) { m.windowTitle.reset(); }), {}, "window title changed"},
      {"away", with(look(5), [](auto& m) { m.away = true; }), {}, "away state changed"},
      {"an old run stretches the interval", with(look(119), [](auto& m) { m.last->runStartedAtMs -= 600'000; }), {}, "skip 1"},
      {"an unstable verdict does not", with(look(60), [](auto& m) { m.last->runStartedAtMs -= 600'000, m.last->volatility = 1; }), {},
       "verdict recently moved"},
      {"nor a task declared 9:59 ago",
       with(look(60), [](auto& m) { m.last->runStartedAtMs -= 600'000, m.episode.minutesSinceDeclared = 599.0 / 60; }), {},
       "task just declared"},
      {"ten minutes ago is not new",
       with(look(60), [](auto& m) { m.last->runStartedAtMs -= 600'000, m.episode.minutesSinceDeclared = 10; }), {}, "skip 60"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(shown(decide(c.moment, Config::make(c.config))), c.want);
  }
}

TEST(ClassifierCadence, interval) {
  const auto after = [](std::int64_t runSec, const char* verdict) {
    return State{.lastJudgedAtMs = start + runSec * 1000, .runStartedAtMs = start, .lastVerdict = verdict}.interval({});
  };
  EXPECT_EQ(after(0, "NOT_ALIGNED"), 60);
  EXPECT_EQ(after(-100, "NOT_ALIGNED"), 60);
  EXPECT_EQ(after(600, "NOT_ALIGNED"), 223);
  EXPECT_EQ(after(600, "ON_TASK"), 120);
  EXPECT_EQ(after(100'000, "NOT_ALIGNED"), 300);
}

TEST(ClassifierCadence, advanced) {
  const auto gap = [](auto& m) { m.nowMs += 1000; };
  const struct {
    const char* name;
    Moment moment;
    const char* verdict;
    RunOutcome outcome;
    std::int64_t runStart, volatility;
    std::optional<std::string> excursion;
  } cases[] = {
      {"first judgment", look(60, {}), "ON_TASK", RunOutcome::verdictMoved, start + 60'000, 0, {}},
      {"all as before", with(look(60), [](auto& m) { m.last->volatility = 2; }), "ON_TASK", RunOutcome::held, start, 1, {}},
      {"verdict moved", look(60), "NOT_ALIGNED", RunOutcome::verdictMoved, start + 60'000, 3, {}},
      {"another app, same verdict: an excursion", with(look(60), [](auto& m) { m.frontmostApp = "Mail"; }), "ON_TASK",
       RunOutcome::verdictMoved, start + 60'000, 0, "Editor"},
      {"back from it: the run's age returns, volatility stays", with(look(60),
                                                                    [](auto& m) {
                                                                      m.last->lastFrontmostApp = "Mail", m.last->volatility = 2;
                                                                      m.last->excursionFromApp = "Editor";
                                                                      m.last->runStartedBeforeExcursionMs = start - 5000;
                                                                    }),
       "ON_TASK", RunOutcome::returnedFromExcursion, start - 5000, 2, {}},
      {"back with another verdict", with(look(60),
                                         [](auto& m) {
                                           m.last->lastFrontmostApp = "Mail";
                                           m.last->excursionFromApp = "Editor";
                                           m.last->runStartedBeforeExcursionMs = start - 5000;
                                         }),
       "NOT_ALIGNED", RunOutcome::verdictMoved, start + 60'000, 3, "Mail"},
      {"silence of exactly the limit is none", look(240), "ON_TASK", RunOutcome::held, start, 0, {}},
      {"a longer one is", with(look(240), gap), "ON_TASK", RunOutcome::regimeGap, start + 241'000, 0, {}},
      {"behind a call, too", with(look(60), [](auto& m) { m.last->pausedForCall = true; }), "ON_TASK", RunOutcome::regimeGap,
       start + 60'000, 0, {}},
      {"another task", with(look(60), [](auto& m) { m.last->lastDeclaredTask = "a", m.episode.declaredTask = "b"; }), "ON_TASK",
       RunOutcome::newDeclaration, start + 60'000, 0, {}},
      {"another task behind a silence", with(look(241), [](auto& m) { m.last->lastDeclaredTask = "a", m.episode.declaredTask = "b"; }),
       "ON_TASK", RunOutcome::regimeGap, start + 241'000, 0, {}},
      {"the first task is no new one", with(look(60), [](auto& m) { m.episode.declaredTask = "b"; }), "ON_TASK", RunOutcome::held, start, 0,
       {}}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(runOutcome(c.moment, c.verdict), c.outcome);
    const auto next = ClassifierCadence::advanced(c.moment, c.verdict);
    EXPECT_EQ(next.runStartedAtMs, c.runStart);
    EXPECT_EQ(next.volatility, c.volatility);
    EXPECT_EQ(next.excursionFromApp, c.excursion);
    EXPECT_EQ(next.runStartedBeforeExcursionMs.has_value(), c.excursion.has_value());
    EXPECT_EQ(next.lastJudgedAtMs, c.moment.nowMs);
    EXPECT_EQ(next.lastRanAtMs, c.moment.nowMs);
    EXPECT_EQ(next.lastVerdict, c.verdict);
    EXPECT_FALSE(next.pausedForCall);
  }
}

TEST(ClassifierCadence, configIsBroughtIntoItsRanges) {
  EXPECT_EQ(Config::make({.floorSec = 0, .ceilingSec = -5, .onTaskCeilingSec = 900, .growthExponent = 7, .warmupSec = -1}),
            (Config{.floorSec = 1, .ceilingSec = 1, .onTaskCeilingSec = 1, .growthExponent = 1, .warmupSec = 0}));
  const struct { Environment environment; std::int64_t floor, ceiling, onTask; } cases[] = {
      {{}, 60, 300, 120},
      {{{"AMBITCAP_CLASSIFY_MIN_INTERVAL_SEC", " 200 "}}, 200, 300, 200},
      {{{"AMBITCAP_CLASSIFY_MIN_INTERVAL_SEC", "400"}}, 400, 400, 400},
      {{{"AMBITCAP_CLASSIFY_MIN_INTERVAL_SEC", "2"}, {"AMBITCAP_CLASSIFY_MAX_INTERVAL_SEC", "4"}}, 2, 4, 4},
      {{{"AMBITCAP_CLASSIFY_MAX_INTERVAL_SEC", "59"}}, 60, 300, 120},
      {{{"AMBITCAP_CLASSIFY_MAX_INTERVAL_SEC", "100"}}, 60, 100, 100},
      {{{"AMBITCAP_CLASSIFY_MIN_INTERVAL_SEC", "-3"}, {"AMBITCAP_CLASSIFY_MAX_INTERVAL_SEC", "1.5"}}, 60, 300, 120}};
  for (const auto& c : cases) {
    const auto config = Config::fromEnvironment(c.environment);
    EXPECT_EQ(config, (Config{.floorSec = c.floor, .ceilingSec = c.ceiling, .onTaskCeilingSec = c.onTask}));
  }
}

TEST(ClassifierCadence, stateFile) {
  const test::TemporaryFolder folder;
  const auto file = folder.path() / "classifier-cadence.json";
  EXPECT_EQ(read(file), std::nullopt);
  auto state = heartbeatPausedForCall(steady(), start + 7, start + 3);
  state.excursionFromApp = "Mail";
  state.runStartedBeforeExcursionMs = start - 9;
  write(state, file);
  EXPECT_EQ(read(file), state);
  const auto text = readFile(file);
  for (const char* bad : {"", "{}", "[]", "null", "{\"v\":1}"}) EXPECT_EQ(State::decode(bad), std::nullopt) << bad;
  for (std::size_t cut = 0; cut < text.size(); ++cut) ASSERT_EQ(State::decode(text.substr(0, cut)), std::nullopt);
  const auto power = heartbeatPausedForPower(state, start + 9);
  EXPECT_TRUE(power.pausedForPower && power.pausedForCall && !power.callHoldSinceMs && power.lastRanAtMs == start + 9);
  EXPECT_EQ(ClassifierPowerPolicy::healthNote(power), "On battery — set to run only when plugged in");
  EXPECT_EQ(ClassifierPowerPolicy::healthNote(state), std::nullopt);
}

TEST(ClassifierPowerPolicy, readsItsKeys) {
  using namespace ClassifierPowerPolicy;
  for (const char* off : {"0", "False", "OFF", "no", ""})
    EXPECT_FALSE(isRequiredByEnvironment({{"AMBITCAP_CLASSIFY_REQUIRE_AC", off}})) << off;
  const Environment required{{"AMBITCAP_CLASSIFY_REQUIRE_AC", "1"}};
  EXPECT_TRUE(mustSkip({.isPluggedIn = false}, required));
  EXPECT_FALSE(mustSkip({.isPluggedIn = true}, required));
  EXPECT_FALSE(mustSkip({}, required)) << "a machine that can't tell runs on mains";
  EXPECT_FALSE(mustSkip({.isPluggedIn = false}, {}));
  const Environment rarely{{"AMBITCAP_CLASSIFY_BATTERY_MIN_INTERVAL_SEC", "300"}, {"AMBITCAP_CLASSIFY_BATTERY_MAX_INTERVAL_SEC", "1200"}};
  EXPECT_TRUE(needsLiveReading(rarely));
  EXPECT_FALSE(needsLiveReading({{"AMBITCAP_CLASSIFY_BATTERY_MIN_INTERVAL_SEC", "soon"}}));
  EXPECT_EQ(effectiveConfig(true, rarely).floorSec, 300);
  EXPECT_EQ(effectiveConfig(true, rarely).ceilingSec, 1200);
  EXPECT_EQ(effectiveConfig(false, rarely).ceilingSec, 300);
}

TEST(ClassifierBatterySettings, survivesTheKeysAndBack) {
  using namespace ClassifierBatterySettings;
  const Values cases[] = {{.onBattery = CheckNormally{}},
                          {.onBattery = PauseOnBattery{}, .pluggedInFloorMinutes = 2},
                          {.onBattery = CheckLessOften{10, 30}, .pluggedInFloorMinutes = 1, .pluggedInCeilingMinutes = 5}};
  for (const auto& values : cases) {
    Environment environment;
    for (const auto& [key, text] : envUpdates(values))
      if (text) environment[key] = *text;
    EXPECT_EQ(ClassifierBatterySettings::read(environment), values);
  }
  EXPECT_EQ(envUpdates({}).size(), 5u) << "every key is told, so that an old one goes";
  const Environment ceilingOnly{{"AMBITCAP_CLASSIFY_BATTERY_MAX_INTERVAL_SEC", "60"}};
  EXPECT_EQ(ClassifierBatterySettings::read(ceilingOnly).onBattery, OnBatteryMode(CheckLessOften{5, 5}));
  EXPECT_EQ(effectiveOnBatteryConfig({.onBattery = PauseOnBattery{}}, false), std::nullopt);
  EXPECT_EQ(effectiveOnBatteryConfig({.onBattery = CheckLessOften{10, 30}}, false)->floorSec, 600);
}

}  // namespace
}  // namespace halvo
