#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "CaptureShared/Records/GateDecisionRecord.h"

namespace halvo {

/// A stretch in which the gate decided nothing.
struct GateDecisionGap {
  std::int64_t fromMs = 0;
  std::int64_t toMs = 0;
  bool isOpen = false;  ///< it had not ended yet
  bool operator==(const GateDecisionGap&) const = default;
};

/// The gate should have decided every few minutes; a hole in its log means it was not run.
namespace GateGapAnalysis {

inline constexpr std::int64_t defaultThresholdMs = 300'000;

/// Between neighbours at least `thresholdMs` apart, and from the newest record to now. No records give no gaps.
std::vector<GateDecisionGap> gaps(std::span<const GateDecisionRecord> records, std::int64_t nowMs,
                                  std::int64_t thresholdMs = defaultThresholdMs);
/// The same from a floor on: the floor counts as a first decision, so a stretch before the first record is a hole too, and older records
/// are left out. Without any record the whole stretch is one open hole.
std::vector<GateDecisionGap> holes(std::span<const GateDecisionRecord> records, std::int64_t floorMs, std::int64_t nowMs,
                                   std::int64_t thresholdMs = defaultThresholdMs);
/// The first gap that holds a moment, both ends included.
std::optional<GateDecisionGap> hole(std::int64_t containingMs, std::span<const GateDecisionGap> in);

}  // namespace GateGapAnalysis
}  // namespace halvo
