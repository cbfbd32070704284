#include "AmbitudeCore/Review/StratifiedBatch.h"

#include <algorithm>
#include <numeric>

#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Foundation/Translation.h"

namespace halvo::RampSampleSelector {

namespace {
bool isStarved(const StratumReport& report) { return report.weight > 0 && (report.population == 0 || report.filled < report.quota); }
}  // namespace

const std::vector<StratumAllocation>& defaultAllocation() {
  using Kind = Stratum::Kind;
  static const std::vector<StratumAllocation> allocation{
      {Stratum::state("ON_TASK"), 11},          {Stratum::state("NOT_ALIGNED"), 10},         {{Kind::gateDecision, "check_in"}, 3},
      {{Kind::gateDecision, "no_check_in"}, 3}, {Stratum::gap(), 4},                          {Stratum::state("IDLE"), 4},
      {Stratum::state("BREAK"), 3},             {Stratum::state("NO_TASK"), 2}};
  return allocation;
}

std::vector<std::int64_t> quotas(const std::vector<StratumReport>& strata, std::int64_t limit) {
  std::vector<std::int64_t> places(strata.size());
  std::vector<std::size_t> sharing;
  std::int64_t total = 0, left = limit;
  for (std::size_t i = 0; i < strata.size(); ++i)
    if (strata[i].weight > 0 && strata[i].population > 0) sharing.push_back(i), total += strata[i].weight;
  if (limit < 1 || total == 0) return places;
  // Whole rounds first, so that no product leaves 64 bits.
  const auto part = [&](std::size_t i) { return limit % total * strata[i].weight; };
  for (const auto i : sharing) left -= places[i] = limit / total * strata[i].weight + part(i) / total;
  std::ranges::stable_sort(sharing, std::greater(), [&](std::size_t i) { return part(i) % total; });
  for (const auto i : sharing)
    if (left > 0) ++places[i], --left;
  return places;
}

std::vector<StratumReport> StratifiedBatch::starvedStrata() const {
  std::vector<StratumReport> starved;
  const bool hasPlaces = std::ranges::any_of(strata, [](const StratumReport& report) { return report.quota > 0; });
  if (hasPlaces) std::ranges::copy_if(strata, std::back_inserter(starved), isStarved);
  return starved;
}

std::vector<AbsentStratum> StratifiedBatch::absentStrata() const {
  std::vector<AbsentStratum> absent;
  for (const auto& report : starvedStrata())
    absent.push_back({report.stratum, report.population, report.population == 0 ? Absence::noCandidates : Absence::crowdedOut});
  return absent;
}

std::optional<std::string> StratifiedBatch::starvationNotice() const {
  std::vector<std::string> groups;
  for (const auto& absent : absentStrata())
    groups.push_back(absent.absence == Absence::noCandidates ? tr("nothing recorded in this window for {}", absent.stratum.displayName())
                                                             : tr("too few spread-out moments for {}", absent.stratum.displayName()));
  if (groups.empty()) return std::nullopt;
  const auto weighted = std::ranges::count_if(strata, [](const StratumReport& report) { return report.weight > 0; });
  return tr(
      "{} of {} groups didn't get their share of this batch — {}. What they'd have had went to the others, so this batch under-represents them.",
      groups.size(), weighted, Text::join(groups, ", "));
}

}  // namespace halvo::RampSampleSelector
