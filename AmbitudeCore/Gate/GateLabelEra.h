#pragma once

#include <cstdint>

#include "CaptureShared/Foundation/RawValue.h"

namespace halvo {

/// The generation of the gate's rules that a decision was made under, so that an old label is not held against a newer gate.
enum class GateLabelEra { preSuppressionFixes, preUnansweredHold, current };
template <>
struct RawValues<GateLabelEra> {
  static constexpr std::array table{std::pair{GateLabelEra::preSuppressionFixes, "preSuppressionFixes"},
                                    std::pair{GateLabelEra::preUnansweredHold, "preUnansweredHold"},
                                    std::pair{GateLabelEra::current, "current"}};
};

/// When each generation began. The first gate of this system already suppresses repeats and holds after an unanswered check-in, so both
/// defaults lie at the epoch and every decision of its own is `current`. A change of the rules moves a boundary to the day it is released.
struct GateLabelEraBoundaries {
  std::int64_t suppressionFixesMs = 0;
  std::int64_t unansweredHoldMs = 0;
};
/// Where a decision's time falls.
GateLabelEra gateLabelEra(std::int64_t decidedAtMs, const GateLabelEraBoundaries& boundaries = {});

}  // namespace halvo
