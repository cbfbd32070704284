#include "AmbitudeCore/Gate/GateLabelEra.h"

namespace halvo {

GateLabelEra gateLabelEra(std::int64_t decidedAtMs, const GateLabelEraBoundaries& boundaries) {
  if (decidedAtMs < boundaries.suppressionFixesMs) return GateLabelEra::preSuppressionFixes;
  if (decidedAtMs < boundaries.unansweredHoldMs) return GateLabelEra::preUnansweredHold;
  return GateLabelEra::current;
}

}  // namespace halvo
