#include "AmbitudeCore/Review/CandidateScreening.h"

#include <algorithm>
#include <cstdlib>
#include <tuple>

#include "CaptureShared/Foundation/Calendar.h"

namespace halvo::RampSampleSelector {

namespace {

constexpr std::size_t firstSorted = 64, sortedGrowth = 4;

auto contentOf(const ClassifierTick& tick) { return std::tie(tick.at, tick.state, tick.reason, tick.frontmostApp, tick.confidence); }

/// Every judgment with a time, by it. Rows of one millisecond are ordered by what they hold, as the order of the input must not count.
std::vector<Candidate> timed(std::span<const ClassifierTick> ticks) {
  std::vector<Candidate> found;
  found.reserve(ticks.size());
  for (const auto& tick : ticks)
    // Not through the shared memo: of a million rows most are asked for once, and a place in its table costs more than to parse again.
    if (const auto atMs = ISO8601::parse(tick.at)) found.push_back({.atMs = *atMs, .tick = &tick});
  const auto isBefore = [](const Candidate& a, const Candidate& b) {
    return a.atMs != b.atMs ? a.atMs < b.atMs : contentOf(*a.tick) < contentOf(*b.tick);
  };
  if (!std::ranges::is_sorted(found, isBefore)) std::ranges::stable_sort(found, isBefore);
  const auto repeated = std::ranges::unique(found, {}, &Candidate::atMs);
  found.erase(repeated.begin(), repeated.end());
  for (std::size_t i = 1; i < found.size(); ++i) found[i].before = found[i - 1].tick;
  return found;
}

}  // namespace

Candidates::Candidates(const Request& request, std::span<const std::string_view> excluded)
    : gaps_(GateGapAnalysis::gaps(request.decisions, request.asOfMs)), all_(timed(request.ticks)) {
  for (const auto& decision : request.decisions) decisions_.push_back(&decision);
  std::ranges::sort(decisions_, [](const auto* a, const auto* b) {
    return a->atMs != b->atMs ? a->atMs < b->atMs : std::tie(a->decision, a->summaryForCoach) < std::tie(b->decision, b->summaryForCoach);
  });
  const auto fromMs = std::max(request.asOfMs - request.maxAgeMs, sidecarEraStartMs);
  std::erase_if(all_, [&](const Candidate& candidate) {
    const auto& state = candidate.tick->state;
    return candidate.atMs < fromMs || candidate.atMs > request.asOfMs || !state || std::ranges::find(excluded, *state) != excluded.end() ||
           request.alreadyLabeledMs.contains(candidate.atMs);
  });
  join(request.gateJoinToleranceMs);
}

void Candidates::join(std::int64_t toleranceMs) {
  std::size_t next = 0, gap = 0;  // the first decision, and the first gap's end, not before the candidate
  for (auto& candidate : all_) {
    if (candidate.atMs < gateIntroducedMs) continue;
    while (next < decisions_.size() && decisions_[next]->atMs < candidate.atMs) ++next;
    while (gap < gaps_.size() && gaps_[gap].toMs < candidate.atMs) ++gap;
    const auto* later = next < decisions_.size() ? decisions_[next] : nullptr;
    const auto* earlier = next > 0 ? decisions_[next - 1] : nullptr;
    const auto* nearest = earlier && (!later || candidate.atMs - earlier->atMs <= later->atMs - candidate.atMs) ? earlier : later;
    if (nearest && std::abs(nearest->atMs - candidate.atMs) <= toleranceMs)
      candidate.decision = nearest;
    else if (gap < gaps_.size() && gaps_[gap].fromMs <= candidate.atMs)
      candidate.gap = &gaps_[gap];
  }
}

const LazyOrder::Item& LazyOrder::at(std::size_t place) {
  while (place >= sorted_) {
    const auto end = std::min(items_.size(), std::max(firstSorted, sorted_ * sortedGrowth));
    const auto from = items_.begin() + static_cast<std::ptrdiff_t>(sorted_), to = items_.begin() + static_cast<std::ptrdiff_t>(end);
    const auto isBefore = [](const Item& a, const Item& b) { return a.score != b.score ? a.score > b.score : a.key < b.key; };
    if (to != items_.end()) std::nth_element(from, to, items_.end(), isBefore);
    std::sort(from, to, isBefore);
    sorted_ = end;
  }
  return items_[place];
}

bool Taking::isNear(std::int64_t atMs) const {
  const auto next = taken_.lower_bound(atMs);
  return (next != taken_.end() && *next - atMs < request_.minSpacingMs) ||
         (next != taken_.begin() && atMs - *std::prev(next) < request_.minSpacingMs);
}

Taking::Answer Taking::offer(const Candidate& candidate, Spacing spacing) {
  if (taken_.contains(candidate.atMs)) return Answer::unavailable;
  if (spacing == Spacing::kept && isNear(candidate.atMs)) return Answer::unavailable;
  if (unrenderable_.contains(candidate.atMs)) return Answer::unrenderable;
  const auto instant = ClassifierFrameInstant::resolve(candidate.tick->screenshotAtMs, candidate.atMs);
  if (request_.isRenderable && !request_.isRenderable(instant.ms)) {
    unrenderable_.insert(candidate.atMs);
    return Answer::unrenderable;
  }
  taken_.insert(candidate.atMs);
  return Answer::taken;
}

Sample sampleOf(const Candidate& candidate) {
  Sample sample{.atMs = candidate.atMs, .tick = *candidate.tick};
  if (candidate.decision) sample.decision = *candidate.decision;
  if (candidate.gap) sample.gap = *candidate.gap;
  return sample;
}

}  // namespace halvo::RampSampleSelector
