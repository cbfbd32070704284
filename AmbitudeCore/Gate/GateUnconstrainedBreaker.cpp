#include "AmbitudeCore/Gate/GateUnconstrainedBreaker.h"

#include <algorithm>

namespace halvo {

bool GateUnconstrainedBreaker::allowsUnconstrained() {
  return counters_.with([](Counters& counters) {
    ++counters.ticksSinceLastSuccess;
    if (counters.skipsRemaining < 1) return true;
    --counters.skipsRemaining;
    return false;
  });
}

void GateUnconstrainedBreaker::recordSuccess() { counters_.set({}); }

GateUnconstrainedBreaker::Failure GateUnconstrainedBreaker::recordParseFailure() {
  return counters_.with([this](Counters& counters) {
    // 2^30 is the last power of two that an int holds.
    counters.skipsRemaining = std::min(maxBackoffTicks_, 1 << std::min(counters.consecutiveFailures, 30));
    ++counters.consecutiveFailures;
    return Failure{counters.skipsRemaining, counters.consecutiveFailures, counters.ticksSinceLastSuccess};
  });
}

}  // namespace halvo
