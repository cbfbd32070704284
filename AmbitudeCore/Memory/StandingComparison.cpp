#include "AmbitudeCore/Memory/StandingComparison.h"

#include <set>
#include <string_view>

namespace halvo::MemoryConsolidation {

namespace {

std::vector<std::string> threadNames(const StandingMemory& memory) {
  std::vector<std::string> names;
  for (const auto& thread : memory.threads) names.push_back(thread.name);
  return names;
}

std::vector<std::string> onlyInFirst(const std::vector<std::string>& first, const std::vector<std::string>& second) {
  const std::set<std::string_view> known(second.begin(), second.end());
  std::vector<std::string> only;
  for (const auto& text : first)
    if (!known.contains(text)) only.push_back(text);
  return only;
}

}  // namespace

Standing::Diff diffStanding(const Labelled& a, const Labelled& b) {
  const auto namesA = threadNames(*a.memory), namesB = threadNames(*b.memory);
  return {.labelA = a.label,
          .labelB = b.label,
          .coverageA = a.coverage,
          .coverageB = b.coverage,
          .lessonsOnlyInA = onlyInFirst(a.memory->lessons, b.memory->lessons),
          .lessonsOnlyInB = onlyInFirst(b.memory->lessons, a.memory->lessons),
          .threadNamesOnlyInA = onlyInFirst(namesA, namesB),
          .threadNamesOnlyInB = onlyInFirst(namesB, namesA)};
}

std::vector<MemoryFact> factsUnsupportedByDigests(const StandingMemory& standing, std::span<const PeriodDigest> digests) {
  std::set<std::string_view> known;
  for (const auto& digest : digests)
    for (const auto& fact : digest.facts) known.insert(fact.text);
  std::vector<MemoryFact> unsupported;
  for (const auto& fact : standing.facts)
    if (!known.contains(fact.text)) unsupported.push_back(fact);
  return unsupported;
}

}  // namespace halvo::MemoryConsolidation
