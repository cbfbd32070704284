#include "AmbitudeCore/Review/RampSampleSelector.h"

#include <algorithm>

#include "AmbitudeCore/Review/CandidateScreening.h"

namespace halvo::RampSampleSelector {

namespace {

using Spacing = Taking::Spacing;

bool isDeclined(const Candidate& candidate) { return candidate.decision && candidate.decision->decision == "no_check_in"; }

std::vector<Reason> reasonsOf(const Candidate& candidate) {
  const auto& tick = *candidate.tick;
  std::vector<Reason> reasons;
  const auto add = [&](Reason reason, bool applies) {
    if (applies) reasons.push_back(reason);
  };
  add(Reason::stateTransition, candidate.before && candidate.before->state != tick.state);
  add(Reason::lowConfidence, tick.confidence && *tick.confidence < lowConfidenceBelow);
  add(Reason::gateDeclinedOnNotAligned, isDeclined(candidate) && (tick.state == "NOT_ALIGNED" || tick.state == "OFF_TASK"));
  add(Reason::gateDeclinedPastCommitment, isDeclined(candidate) && candidate.decision->commitmentOverdueMs.value_or(0) > 0);
  add(Reason::gateFailed, candidate.decision && candidate.decision->decision == "failed");
  add(Reason::gateSpoke, candidate.decision && candidate.decision->decision == "check_in");
  return reasons;
}

/// One verdict-blind batch in the making.
class Stratified {
 public:
  explicit Stratified(const Request& request)
      : request_(request), candidates_(request, noVerdictStates), orders_(request.allocation.size()), taking_(request) {
    for (const auto& [stratum, weight] : request.allocation) batch_.strata.push_back({.stratum = stratum, .weight = weight});
    assign();
    for (std::size_t i = 0; i < orders_.size(); ++i) batch_.strata[i].population = static_cast<std::int64_t>(orders_[i].size());
    const auto places = quotas(batch_.strata, request.limit);
    for (std::size_t i = 0; i < places.size(); ++i) batch_.strata[i].quota = places[i];
  }

  StratifiedBatch draw() && {
    for (std::size_t i = 0; i < orders_.size(); ++i) fill(i, batch_.strata[i].quota, Spacing::kept, false);
    for (const auto spacing : {Spacing::kept, Spacing::ignored})
      for (std::size_t i = 0; i < orders_.size(); ++i)
        if (batch_.strata[i].weight > 0) fill(i, request_.limit - static_cast<std::int64_t>(taking_.count()), spacing, true);
    std::ranges::sort(batch_.samples, {}, [&](const Sample& sample) { return seededKey(request_.seed, sample.atMs); });
    return std::move(batch_);
  }

 private:
  std::optional<std::size_t> placeOf(Stratum::Kind kind, std::string_view value) const {
    const auto found = std::ranges::find_if(
        request_.allocation, [&](const StratumAllocation& one) { return one.stratum.kind == kind && one.stratum.value == value; });
    return found == request_.allocation.end() ? std::nullopt : std::optional<std::size_t>(found - request_.allocation.begin());
  }

  void assign() {
    const auto& all = candidates_.all();
    for (std::uint32_t i = 0; i < all.size(); ++i) {
      const LazyOrder::Item item{.key = seededKey(request_.seed, all[i].atMs), .candidate = i};
      if (const auto place = placeOf(Stratum::Kind::classifierState, *all[i].tick->state)) orders_[*place].add(item);
      else ++batch_.unallocatedStates[*all[i].tick->state];
      if (!all[i].decision && !all[i].gap) continue;
      const auto value = all[i].decision ? std::string_view(all[i].decision->decision) : "gap";
      if (const auto place = placeOf(Stratum::Kind::gateDecision, value)) orders_[*place].add(item);
    }
  }

  void fill(std::size_t stratum, std::int64_t room, Spacing spacing, bool topUp) {
    auto& report = batch_.strata[stratum];
    for (std::size_t place = 0; room > 0 && place < orders_[stratum].size(); ++place) {
      const auto& candidate = candidates_.all()[orders_[stratum].at(place).candidate];
      const auto answer = taking_.offer(candidate, spacing);
      if (answer == Taking::Answer::unrenderable && !topUp) ++report.unrenderableSkipped;
      if (answer != Taking::Answer::taken) continue;
      --room, ++report.filled;
      auto sample = sampleOf(candidate);
      sample.provenance = {.mode = SamplingMode::verdictBlind,
                           .stratum = report.stratum,
                           .stratumPopulation = report.population,
                           .batchSize = request_.limit,
                           .seed = request_.seed,
                           .topUp = topUp};
      batch_.samples.push_back(std::move(sample));
    }
  }

  const Request& request_;
  Candidates candidates_;
  std::vector<LazyOrder> orders_;
  Taking taking_;
  StratifiedBatch batch_;
};

}  // namespace

std::uint64_t seededKey(std::uint64_t seed, std::int64_t atMs) {
  constexpr std::uint64_t step = 0x9E3779B97F4A7C15;
  std::uint64_t x = seed * step + step + static_cast<std::uint64_t>(atMs);
  x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9;
  x = (x ^ (x >> 27)) * 0x94D049BB133111EB;
  return x ^ (x >> 31);
}

StratifiedBatch selectVerdictBlindBatch(const Request& request) { return Stratified(request).draw(); }

std::vector<Sample> selectBatch(const Request& request) {
  const Candidates candidates(request, excludedStates);
  LazyOrder order;
  for (std::uint32_t i = 0; i < candidates.all().size(); ++i) {
    const auto& candidate = candidates.all()[i];
    double score = 0;
    for (const auto reason : reasonsOf(candidate)) score += weight(reason);
    if (score > 0) order.add({.score = score, .key = seededKey(request.seed, candidate.atMs), .candidate = i});
  }
  Taking taking(request);
  std::vector<Sample> samples;
  for (std::size_t place = 0; place < order.size() && static_cast<std::int64_t>(samples.size()) < request.limit; ++place) {
    const auto& item = order.at(place);
    const auto& candidate = candidates.all()[item.candidate];
    if (taking.offer(candidate, Spacing::kept) != Taking::Answer::taken) continue;
    auto sample = sampleOf(candidate);
    sample.score = item.score;
    sample.reasons = reasonsOf(candidate);
    sample.provenance = {.mode = SamplingMode::interestingMoments,
                         .stratumPopulation = static_cast<std::int64_t>(order.size()),
                         .batchSize = request.limit,
                         .seed = request.seed};
    samples.push_back(std::move(sample));
  }
  return samples;
}

std::vector<Sample> selectBatch(SamplingMode mode, const Request& request) {
  switch (mode) {
    case SamplingMode::verdictBlind: return selectVerdictBlindBatch(request).samples;
    case SamplingMode::interestingMoments: return selectBatch(request);
  }
  return {};
}

}  // namespace halvo::RampSampleSelector
