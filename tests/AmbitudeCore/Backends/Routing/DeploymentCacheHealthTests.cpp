#include <algorithm>

#include <gtest/gtest.h>

#include "AmbitudeCore/Backends/Routing/DeploymentCacheHealth.h"

namespace halvo {
namespace {

using namespace DeploymentCacheHealth;

constexpr std::int64_t dayMs = 86'400'000;

/// `turnsADay` turns a day of 1000 prompt tokens each; the rate swings by 0.01 from day to day.
void deploy(std::vector<TurnUsageRecord>& rows, const char* version, int fromDay, int days, int turnsADay, int cached) {
  for (int day = fromDay; day < fromDay + days; ++day)
    for (int turn = 0; turn < turnsADay; ++turn)
      rows.push_back({.atMs = day * dayMs + turn * 1000, .layer = "gate", .promptTokens = 1000,
                      .cachedPromptTokens = cached + (day % 2 ? 10 : -10), .buildVersion = version});
}

TEST(DeploymentCacheHealth, audit) {
  using enum CheckpointOutcome;
  const struct {
    const char* name;
    int priorDays, turnsADay, cached, nowDay;
    std::vector<CheckpointOutcome> want;  // of build "2", which begins on day 20
  } cases[] = {{"as before", 6, 60, 800, 27, {ok, ok, ok}},
               {"a little lower, within the least spread", 6, 60, 775, 27, {ok, ok, ok}},
               {"a broken prefix", 6, 60, 700, 27, {flagged, flagged, flagged}},
               {"higher is no drop", 6, 60, 950, 21, {ok}},
               {"the day is not over", 6, 60, 700, 20, {}},
               {"too few turns on the first day", 6, 20, 700, 27, {insufficientSample, flagged, flagged}},
               {"four days tell no spread", 4, 60, 700, 21, {insufficientPriorSpread}},
               {"nothing before it", 0, 60, 700, 23, {newBaseline, newBaseline}}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    std::vector<TurnUsageRecord> rows;
    deploy(rows, "1", 2, c.priorDays, 60, 800);
    deploy(rows, "2", 20, 7, c.turnsADay, c.cached);
    for (const int left : {0, 1, 2}) {  // rows that say nothing of a build's cache
      rows.push_back(rows.back());
      rows.back().cachedPromptTokens = 0;
      if (left == 0) rows.back().servedByFallback = true;
      if (left == 1) rows.back().cachedPromptTokens.reset();
      if (left == 2) rows.back().layer = "coach", rows.back().buildVersion.reset();
    }
    std::reverse(rows.begin(), rows.end());
    std::vector<CheckpointOutcome> got;
    for (const auto& checkpoint : audit(rows, c.nowDay * dayMs + 1)) {
      if (checkpoint.finding.buildVersion != "2") continue;
      got.push_back(checkpoint.outcome);
      EXPECT_NEAR(checkpoint.finding.actualHitRate, c.cached / 1000.0, 0.011);
      EXPECT_NEAR(checkpoint.finding.expectedHitRate, c.priorDays ? 0.8 : 0, 1e-9);
      EXPECT_EQ(checkpoint.finding.priorDeploymentDays, c.priorDays);
      EXPECT_EQ(checkpoint.finding.sampleTurnCount, c.turnsADay * checkpoint.finding.checkpointDays);
    }
    EXPECT_EQ(got, c.want);
  }
  std::vector<TurnUsageRecord> rows;
  deploy(rows, "1", 0, 2, 60, 800);
  deploy(rows, "2", 2, 1, 60, 800);
  EXPECT_EQ(audit(rows, 30 * dayMs).size(), 4u) << "build 1 was replaced after two days: it has no third";
}

}  // namespace
}  // namespace halvo
