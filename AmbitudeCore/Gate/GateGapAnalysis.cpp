#include "AmbitudeCore/Gate/GateGapAnalysis.h"

#include <algorithm>

namespace halvo::GateGapAnalysis {
namespace {
std::vector<GateDecisionGap> between(std::vector<std::int64_t> moments, std::int64_t nowMs, std::int64_t thresholdMs) {
  std::ranges::sort(moments);
  std::vector<GateDecisionGap> found;
  for (std::size_t index = 1; index < moments.size(); ++index)
    if (moments[index] - moments[index - 1] >= thresholdMs) found.push_back({moments[index - 1], moments[index], false});
  if (!moments.empty() && nowMs - moments.back() >= thresholdMs) found.push_back({moments.back(), nowMs, true});
  return found;
}
}  // namespace

std::vector<GateDecisionGap> gaps(std::span<const GateDecisionRecord> records, std::int64_t nowMs, std::int64_t thresholdMs) {
  std::vector<std::int64_t> moments;
  for (const auto& record : records) moments.push_back(record.atMs);
  return between(std::move(moments), nowMs, thresholdMs);
}

std::vector<GateDecisionGap> holes(std::span<const GateDecisionRecord> records, std::int64_t floorMs, std::int64_t nowMs,
                                   std::int64_t thresholdMs) {
  std::vector<std::int64_t> moments{floorMs};
  for (const auto& record : records)
    if (record.atMs >= floorMs) moments.push_back(record.atMs);
  return between(std::move(moments), nowMs, thresholdMs);
}

std::optional<GateDecisionGap> hole(std::int64_t containingMs, std::span<const GateDecisionGap> in) {
  const auto found =
      std::ranges::find_if(in, [&](const GateDecisionGap& gap) { return containingMs >= gap.fromMs && containingMs <= gap.toMs; });
  return found == in.end() ? std::nullopt : std::optional(*found);
}

}  // namespace halvo::GateGapAnalysis
