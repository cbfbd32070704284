// Which moments a person is asked about.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>

#include <fmt/format.h>

#include "AmbitudeCore/Review/RampSampleReplaySelection.h"
#include "AmbitudeCore/Review/RampSampleSelector.h"
#include "CaptureShared/Foundation/Calendar.h"

namespace halvo::RampSampleSelector {
namespace {

constexpr std::int64_t now = 1'795'600'000'000, minute = 60'000;

ClassifierTick tick(std::int64_t minutesAgo, const char* state, std::optional<double> confidence = {}) {
  return {.at = ISO8601::utcMillis(now - minutesAgo * minute), .state = state, .confidence = confidence};
}
GateDecisionRecord gate(std::int64_t minutesAgo, const char* decision) { return {.atMs = now - minutesAgo * minute, .decision = decision}; }
std::int64_t ago(const Sample& sample) { return (now - sample.atMs) / minute; }
std::vector<std::int64_t> agos(const std::vector<Sample>& samples) {
  std::vector<std::int64_t> found;
  for (const auto& sample : samples) found.push_back(ago(sample));
  std::ranges::sort(found);
  return found;
}
std::vector<ClassifierTick> row(int count, int everyMinutes, const char* state = "ON_TASK") {
  std::vector<ClassifierTick> ticks;
  for (int i = 0; i < count; ++i) ticks.push_back(tick(1 + i * everyMinutes, state));
  return ticks;
}

TEST(RampSampleSelector, quotas) {
  const auto shared = [](std::vector<std::pair<int, int>> weightAndPopulation, std::int64_t limit) {
    std::vector<StratumReport> strata;
    for (const auto& [weight, population] : weightAndPopulation) strata.push_back({.weight = weight, .population = population});
    return quotas(strata, limit);
  };
  using Places = std::vector<std::int64_t>;
  EXPECT_EQ(shared({{11, 9}, {10, 9}, {3, 9}, {3, 9}, {4, 9}, {4, 9}, {3, 9}, {2, 9}}, 20), (Places{6, 5, 2, 1, 2, 2, 1, 1}));
  EXPECT_EQ(shared({{11, 9}, {10, 0}, {0, 9}}, 20), (Places{20, 0, 0})) << "what nobody can fill goes to the others";
  EXPECT_EQ(shared({{1, 9}, {1, 9}, {1, 9}}, 2), (Places{1, 1, 0})) << "of equal fractions the first";
  EXPECT_EQ(shared({{1, 9}}, 0), Places{0});
  EXPECT_EQ(shared({{3, 1}, {1, 1}}, 4'000'000'000'000'000'000), (Places{3'000'000'000'000'000'000, 1'000'000'000'000'000'000}));
}

TEST(RampSampleSelector, theSameBatchWhateverTheOrderOfTheRows) {
  auto ticks = row(200, 7);
  const auto more = row(150, 9, "NOT_ALIGNED");
  ticks.insert(ticks.end(), more.begin(), more.end());
  std::vector<GateDecisionRecord> decisions{gate(20, "check_in"), gate(300, "no_check_in"), gate(301, "no_check_in"), gate(900, "failed")};
  const auto batch = [&](SamplingMode mode, std::uint64_t seed) {
    return selectBatch(mode, {.ticks = ticks, .decisions = decisions, .asOfMs = now, .limit = 12, .seed = seed});
  };
  for (const auto mode : {SamplingMode::verdictBlind, SamplingMode::interestingMoments}) {
    const auto first = batch(mode, 7);
    std::ranges::reverse(ticks), std::ranges::reverse(decisions);
    EXPECT_EQ(batch(mode, 7), first);
    EXPECT_NE(agos(batch(mode, 8)), agos(first));
    EXPECT_EQ(first.size(), 12u);
  }
}

TEST(RampSampleSelector, whatIsNeverPicked) {
  auto ticks = std::vector{tick(-1, "ON_TASK"),         tick(10, "ON_TASK"),
                           tick(20, "ABSTAINED", 0.1),  tick(30, "ON_TASK", 0.1),
                           tick(2881, "ON_TASK", 0.1),  tick(2880, "ON_TASK", 0.1),
                           tick(40, "ON_TASK", 0.1),    ClassifierTick{.at = "soon", .state = "ON_TASK"}};
  const auto frameMs = now - 40 * minute - 5'000;
  ticks[6].screenshotAtMs = frameMs;
  Request request{.ticks = ticks, .asOfMs = now, .alreadyLabeledMs = {now - 10 * minute}};
  int asked = 0;
  request.isRenderable = [&](std::int64_t atMs) { return asked += atMs == frameMs, atMs != frameMs; };
  for (const auto mode : {SamplingMode::verdictBlind, SamplingMode::interestingMoments})
    EXPECT_EQ(agos(selectBatch(mode, request)), (std::vector<std::int64_t>{30, 2880}));
  asked = 0;
  EXPECT_EQ(selectVerdictBlindBatch(request).strata[0].unrenderableSkipped, 1);
  EXPECT_EQ(asked, 1) << "once, in all the passes";
  request.limit = 0;
  for (const auto mode : {SamplingMode::verdictBlind, SamplingMode::interestingMoments}) EXPECT_TRUE(selectBatch(mode, request).empty());
  EXPECT_FALSE(selectVerdictBlindBatch(request).starvationNotice());
}

TEST(RampSampleSelector, erasWeightsAndKeys) {
  for (const auto era : {sidecarEraStartMs, gateIntroducedMs}) {
    const std::vector ticks{ClassifierTick{.at = ISO8601::utcMillis(era - 1), .state = "ON_TASK"},
                            ClassifierTick{.at = ISO8601::utcMillis(era), .state = "ON_TASK"}};
    const std::vector decisions{GateDecisionRecord{.atMs = era, .decision = "check_in"}};
    std::string found;
    for (const auto& sample : selectBatch(SamplingMode::verdictBlind, {.ticks = ticks, .decisions = decisions, .asOfMs = era + minute}))
      found += fmt::format(" {}{}", sample.atMs - era, sample.decision ? "+gate" : "");
    EXPECT_TRUE(era == sidecarEraStartMs ? found == " 0" : found == " 0+gate -1" || found == " -1 0+gate") << found;
  }
  std::string weights;
  for (const auto& [stratum, weight] : defaultAllocation()) weights += fmt::format("{} {}, ", stratum.name(), weight);
  EXPECT_EQ(weights, "state:ON_TASK 11, state:NOT_ALIGNED 10, gate:check_in 3, gate:no_check_in 3, gate:gap 4, state:IDLE 4, "
                     "state:BREAK 3, state:NO_TASK 2, ");
  // From an independent computation; the first is that generator's well-known first number.
  EXPECT_EQ(seededKey(0, 0), 0xe220a8397b1dcdaf);
  EXPECT_EQ(seededKey(7, now), 0x366ddd3bcd0191ee);
  EXPECT_EQ(seededKey(~0ull, -1), 0xb4d055fcf2cbbd7b);
}

TEST(RampSampleSelector, spacingHoldsUntilTheLastPass) {
  const auto apart = row(2, 5);
  for (std::uint64_t seed = 0; seed < 8; ++seed)
    for (const auto& sample : selectBatch(SamplingMode::verdictBlind, {.ticks = apart, .asOfMs = now, .limit = 2, .seed = seed}))
      EXPECT_FALSE(sample.provenance.topUp) << "five minutes are enough";
  const auto ticks = std::vector{tick(10, "ON_TASK"), tick(12, "NOT_ALIGNED"), tick(30, "ON_TASK"), tick(40, "OFF_TASK")};
  Request request{.ticks = ticks, .asOfMs = now, .limit = 2};
  for (request.seed = 0; request.seed < 10; ++request.seed)
    EXPECT_NE(agos(selectBatch(SamplingMode::verdictBlind, request)), (std::vector<std::int64_t>{10, 12})) << "across strata too";
  request.limit = 3;
  const auto batch = selectVerdictBlindBatch(request);
  EXPECT_EQ(agos(batch.samples), (std::vector<std::int64_t>{10, 12, 30}));
  EXPECT_EQ(std::ranges::count_if(batch.samples, [](const Sample& sample) { return sample.provenance.topUp; }), 1);
  EXPECT_EQ(batch.unallocatedStates, (std::map<std::string, std::int64_t>{{"OFF_TASK", 1}}));
}

TEST(RampSampleSelector, tellsWhichGroupsWereStarved) {
  const auto onTask = row(40, 10);
  const auto alone = selectVerdictBlindBatch({.ticks = onTask, .asOfMs = now, .limit = 20, .seed = 3});
  EXPECT_EQ(alone.samples.size(), 20u);
  for (const auto& sample : alone.samples) EXPECT_FALSE(sample.provenance.topUp) << "the whole share was its own";
  EXPECT_EQ(alone.samples[0].provenance.noteFragment(), "mode=verdict_blind stratum=state:ON_TASK stratum_n=40 batch_n=20 seed=3");
  EXPECT_TRUE(alone.starvationNotice()->starts_with("7 of 8 groups didn't get their share of this batch — nothing recorded in this window for "
                                                    "NOT_ALIGNED, nothing recorded in this window for times it spoke, "));
  EXPECT_TRUE(alone.starvationNotice()->ends_with(". What they'd have had went to the others, so this batch under-represents them."));
  auto mixed = onTask;
  mixed.push_back(tick(700, "NOT_ALIGNED"));
  const std::vector<StratumAllocation> two{{Stratum::state("ON_TASK"), 1}, {Stratum::state("NOT_ALIGNED"), 1}};
  const auto batch = selectVerdictBlindBatch({.ticks = mixed, .asOfMs = now, .limit = 20, .allocation = two});
  EXPECT_EQ(*batch.starvationNotice(), "1 of 2 groups didn't get their share of this batch — too few spread-out moments for NOT_ALIGNED. "
                                       "What they'd have had went to the others, so this batch under-represents them.");
  EXPECT_EQ(std::ranges::count_if(batch.samples, [](const Sample& sample) { return sample.provenance.topUp; }), 9);
  EXPECT_TRUE(std::ranges::any_of(batch.samples, [](const Sample& sample) { return sample.provenance.noteFragment().ends_with(" top_up=1"); }));
}

TEST(RampSampleSelector, theGatesQuestion) {
  const std::vector<GateDecisionRecord> decisions{gate(200, "check_in"), gate(100, "no_check_in"), gate(97, "failed"), gate(5, "check_in")};
  const struct { const char* name; std::int64_t minutesAgo; std::int64_t secondsOff; const char* want; } cases[] = {
      {"at the tolerance", 100, -90, "no_check_in"}, {"past it, in a gap", 100, -91, "gap 200"}, {"a failed call has no verdict", 97, 0, "none"},
      {"the nearer of two", 99, 0, "no_check_in"}, {"a gap", 50, 0, "gap 97"}, {"before any decision", 300, 0, "none"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const std::vector ticks{ClassifierTick{.at = ISO8601::utcMillis(now - c.minutesAgo * minute + c.secondsOff * 1000), .state = "ON_TASK"}};
    const auto samples = selectBatch(SamplingMode::verdictBlind, {.ticks = ticks, .decisions = decisions, .asOfMs = now});
    ASSERT_EQ(samples.size(), 1u);
    const auto question = samples[0].layer2Question();
    std::string got = "none";
    if (question && std::holds_alternative<GateDecisionRecord>(*question)) got = std::get<GateDecisionRecord>(*question).decision;
    else if (question) got = "gap " + std::to_string((now - std::get<GateDecisionGap>(*question).fromMs) / minute);
    EXPECT_EQ(got, c.want);
  }
}

TEST(RampSampleSelector, whatStoodOutComesFirst) {
  auto late = gate(60, "no_check_in");
  late.commitmentOverdueMs = 1;
  const std::vector<GateDecisionRecord> decisions{gate(20, "check_in"), late, gate(80, "failed")};
  const std::vector ticks{tick(100, "ON_TASK", 0.6),  tick(80, "ON_TASK"),     tick(60, "NOT_ALIGNED", 0.59),
                          tick(40, "NOT_ALIGNED"), tick(20, "NOT_ALIGNED"), tick(10, "IDLE", 0.1)};
  const auto samples = selectBatch({.ticks = ticks, .decisions = decisions, .asOfMs = now});
  ASSERT_EQ(samples.size(), 3u);
  EXPECT_EQ(ago(samples[0]), 60);
  EXPECT_EQ(samples[0].score, 18);  // a change, unsure, declined though not aligned, past the commitment
  EXPECT_EQ(ago(samples[1]) * 100 + std::lround(samples[1].score), 2004);
  EXPECT_EQ(ago(samples[2]) * 100 + std::lround(samples[2].score), 8002);
  EXPECT_EQ(samples[0].provenance.noteFragment(), "mode=interesting_moments stratum_n=3 batch_n=20 seed=0");
}

TEST(RampSampleSelector, everyMomentOfAStratumIsAsLikely) {
  constexpr int moments = 40, seeds = 2'000, drawn = 8;
  const auto ticks = row(moments, 10);
  std::vector<int> counts(moments);
  for (std::uint64_t seed = 0; seed < seeds; ++seed)
    for (const auto& sample : selectBatch(SamplingMode::verdictBlind, {.ticks = ticks, .asOfMs = now, .limit = drawn, .seed = seed}))
      ++counts[static_cast<std::size_t>(ago(sample) / 10)];
  const double expected = static_cast<double>(seeds) * drawn / moments;
  double deviation = 0;  // chi-squared; drawing without replacement narrows it by 1 - drawn / moments
  for (const auto count : counts) deviation += (count - expected) * (count - expected) / expected;
  EXPECT_LT(deviation / (1 - static_cast<double>(drawn) / moments), 72.1) << "0.1 % of fair draws lie above, at 39 degrees of freedom";
  EXPECT_EQ(std::accumulate(counts.begin(), counts.end(), 0), seeds * drawn);
}

TEST(RampSampleSelector, manyMomentsAreNotAllLookedAt) {
  std::vector<ClassifierTick> ticks;
  for (int i = 0; i < 100'000; ++i) ticks.push_back({.at = ISO8601::utcMillis(now - i * 1'000), .state = i % 3 ? "ON_TASK" : "NOT_ALIGNED"});
  RampScreeningReporter reporter{.requested = 20};
  const auto samples = selectBatch(SamplingMode::verdictBlind, {.ticks = ticks, .asOfMs = now, .isRenderable = reporter.watching({})});
  EXPECT_EQ(samples.size(), 20u);
  EXPECT_EQ(reporter.screened, 20);
  EXPECT_EQ(RampLoadPhase::text(RampLoadPhase::ScreeningCandidates{3, 20, 9}), "Found 3 of 20 moment candidates");
}

TEST(RampSampleReplaySelection, blindAnswersCount) {
  using namespace RampSampleReplaySelection;
  const std::string revised = "x revised AFTER reveal — anchored on the classifier's verdict";
  const struct { const char* name; Row row; bool want; } cases[] = {
      {"known not to be, whatever the notes", {.source = "in_app_ramp", .answeredBlind = false}, false},
      {"known to be, whatever the notes", {.source = "in_app_ramp", .notes = revised, .answeredBlind = true}, true},
      {"a review's row", {.source = "in_app_ramp", .notes = "mode=verdict_blind"}, true},
      {"a review's revision", {.source = "in_app_ramp", .notes = revised}, false},
      {"somebody else's words", {.source = "in_app", .notes = revised}, true}};
  for (const auto& c : cases) EXPECT_EQ(isBlind(c.row), c.want) << c.name;
  const std::vector<Row> rows{{.id = 1, .t0Ms = 5, .answeredBlind = true},
                              {.id = 3, .t0Ms = 5, .answeredBlind = false},
                              {.id = 2, .t0Ms = 5, .answeredBlind = true},
                              {.id = 4, .t0Ms = 4, .answeredBlind = false}};
  EXPECT_EQ(selectForScoring(rows, true), (std::vector{rows[3], rows[2]}));
  EXPECT_EQ(selectForScoring(rows, false), (std::vector{rows[3], rows[1]}));
  EXPECT_EQ(groupsWithExcludedRevision(rows), std::vector{rows[1]});
}

}  // namespace
}  // namespace halvo::RampSampleSelector
