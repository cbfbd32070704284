#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "AmbitudeCore/Folds/TimedTicks.h"

namespace halvo {

/// What someone is doing, as coarse as it takes to tell whether it has changed.
struct Situation {
  std::string state = {};
  std::optional<std::string> app = {};
  /// "STATE in APP".
  std::string described() const;
  bool operator==(const Situation&) const = default;
};

struct SituationRun {
  Situation situation = {};
  std::int64_t startMs = 0;
  int samples = 0;
  bool operator==(const SituationRun&) const = default;
};

/// Stretches of one situation. Judgments that say nothing about the person (abstained, idle, our own window in front) neither end nor begin
/// one. `ticks` are in time order.
std::vector<SituationRun> situationRuns(std::span<const TimedTick> ticks);

}  // namespace halvo
