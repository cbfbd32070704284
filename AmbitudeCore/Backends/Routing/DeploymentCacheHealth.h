#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "AmbitudeCore/Backends/TurnUsageRecord.h"

/// Did a new build keep the prompt-cache hit rate? A changed prompt prefix costs money without failing anything; here it shows. Pure.
namespace halvo::DeploymentCacheHealth {

struct Config {
  std::array<int, 3> checkpointDays{1, 3, 7};  ///< days from a build's first turn at which it is looked at
  int minimumTurns = 50;                        ///< with cache figures, within a checkpoint: a rate of 0.8 is then known to ±0.06
  int minimumTurnsADay = 15;                    ///< for a day to count into the spread
  int minimumPriorDays = 5;                     ///< of earlier builds: fewer tell no spread
  double toleranceSigma = 2;
  double leastSigma = 0.02;  ///< days that happen to be alike must not make every later day a drop
};

enum class CheckpointOutcome {
  newBaseline,              ///< no earlier build to compare with
  insufficientSample,       ///< too few turns of this build
  insufficientPriorSpread,  ///< too few days of earlier builds
  ok,
  flagged  ///< below the expected rate by more than the tolerance
};

struct Finding {
  std::string layer = {}, buildVersion = {};
  int checkpointDays = 0;
  double expectedHitRate = 0;  ///< mean of the earlier builds' days; 0 without any
  double actualHitRate = 0;    ///< cached over prompt tokens from the build's first turn to the checkpoint
  double toleranceSigma = 0;   ///< standard deviations below the expectation that are still no drop
  int sampleTurnCount = 0;
  int priorDeploymentDays = 0;  ///< days of earlier builds that the expectation is made of
};

struct Checkpoint {
  CheckpointOutcome outcome = CheckpointOutcome::newBaseline;
  Finding finding = {};
};

/// Every checkpoint that a build reached before `nowMs` and before the layer's next build began, by layer, build start and day. Rows count
/// that name a build, report cached tokens and were not served by the fallback. The order of `rows` does not matter.
std::vector<Checkpoint> audit(const std::vector<TurnUsageRecord>& rows, std::int64_t nowMs, const Config& config = {});

}  // namespace halvo::DeploymentCacheHealth
