#pragma once

#include <array>
#include <cstdint>
#include <set>
#include <span>
#include <string_view>
#include <vector>

#include "AmbitudeCore/Review/RampSample.h"
#include "AmbitudeCore/Review/RampScreeningReporter.h"
#include "AmbitudeCore/Review/StratifiedBatch.h"

/// Picks the moments that a person reviews. Pure but for `isRenderable`: the same rows and seed give the same batch, in whatever order the
/// rows come. Of several judgments of one millisecond one is a candidate.
namespace halvo::RampSampleSelector {

inline constexpr std::int64_t sidecarEraStartMs = 1'783'448'166'082;  ///< earlier frames can't be placed in a recording
inline constexpr std::int64_t gateIntroducedMs = 1'788'737'512'000;   ///< nothing is asked of the gate before this
inline constexpr std::int64_t defaultGateJoinToleranceMs = 90'000;    ///< how far a decision may lie from a judgment
inline constexpr std::int64_t defaultMaxAgeMs = 172'800'000;          ///< 48 hours: how far back a batch reaches
inline constexpr std::int64_t defaultMinSpacingMs = 300'000;          ///< five minutes: nearer moments show nearly the same clip's end
inline constexpr double lowConfidenceBelow = 0.6;
inline constexpr std::array<std::string_view, 2> excludedStates{"IDLE", "ABSTAINED"};  ///< never picked for standing out
inline constexpr std::array<std::string_view, 1> noVerdictStates{"ABSTAINED"};         ///< never picked at random; nor is no state

struct Request {
  std::span<const ClassifierTick> ticks = {};
  std::span<const GateDecisionRecord> decisions = {};
  std::int64_t asOfMs = 0;                         ///< no later moment is picked
  std::set<std::int64_t> alreadyLabeledMs = {};    ///< times of judgments that are never picked
  std::int64_t limit = 20;
  std::int64_t gateJoinToleranceMs = defaultGateJoinToleranceMs;
  std::int64_t minSpacingMs = defaultMinSpacingMs;
  std::uint64_t seed = 0;
  std::int64_t maxAgeMs = defaultMaxAgeMs;
  std::vector<StratumAllocation> allocation = defaultAllocation();
  /// Gets the time of a judgment's frame; empty: every moment is. Asked once a moment at most, when nothing else stands against it.
  IsRenderable isRenderable = {};
};

/// Either of the two.
std::vector<Sample> selectBatch(SamplingMode mode, const Request& request);
/// The moments that stood out, by falling score.
std::vector<Sample> selectBatch(const Request& request);
/// A random sample within each stratum; what the strata can't fill is topped up from the others, at last without spacing.
StratifiedBatch selectVerdictBlindBatch(const Request& request);

/// What the candidates are sorted by: looks random, different for each moment, the same for a seed.
std::uint64_t seededKey(std::uint64_t seed, std::int64_t atMs);

}  // namespace halvo::RampSampleSelector
