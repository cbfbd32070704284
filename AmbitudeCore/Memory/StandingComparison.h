#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "CaptureShared/Records/PeriodDigest.h"
#include "CaptureShared/Records/StandingMemory.h"

namespace halvo {

namespace Standing {
/// What two memories differ in, by exact text.
struct Diff {
  std::string labelA = {}, labelB = {};
  std::int64_t coverageA = 0, coverageB = 0;  ///< digests that went in
  std::vector<std::string> lessonsOnlyInA = {}, lessonsOnlyInB = {};
  std::vector<std::string> threadNamesOnlyInA = {}, threadNamesOnlyInB = {};
};
}  // namespace Standing

namespace MemoryConsolidation {

struct Labelled {
  std::string label = {};
  const StandingMemory* memory = nullptr;
  std::int64_t coverage = 0;
};
Standing::Diff diffStanding(const Labelled& a, const Labelled& b);

/// The standing facts whose text no digest contains: a regeneration may only choose among facts, so there should be none.
std::vector<MemoryFact> factsUnsupportedByDigests(const StandingMemory& standing, std::span<const PeriodDigest> digests);

}  // namespace MemoryConsolidation
}  // namespace halvo
