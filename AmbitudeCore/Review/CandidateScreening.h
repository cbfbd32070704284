#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <unordered_set>
#include <vector>

#include "AmbitudeCore/Review/RampSampleSelector.h"

/// What both selections are made of.
namespace halvo::RampSampleSelector {

/// A judgment with what the gate made of it. It points into the request.
struct Candidate {
  std::int64_t atMs = 0;
  const ClassifierTick* tick = nullptr;
  const ClassifierTick* before = nullptr;  ///< the judgment before it, whatever that was
  const GateDecisionRecord* decision = nullptr;
  const GateDecisionGap* gap = nullptr;
};

class Candidates {
 public:
  Candidates(const Request& request, std::span<const std::string_view> excludedStates);
  const std::vector<Candidate>& all() const { return all_; }

 private:
  /// Gives each candidate its nearest decision, of equally near ones the earlier, or else the gap around it.
  void join(std::int64_t toleranceMs);

  std::vector<const GateDecisionRecord*> decisions_;  // by time
  std::vector<GateDecisionGap> gaps_;
  std::vector<Candidate> all_;
};

/// Candidates by falling score and then by their keys. Only as much is sorted as is asked for: of a million a batch wants twenty.
class LazyOrder {
 public:
  struct Item {
    double score = 0;
    std::uint64_t key = 0;
    std::uint32_t candidate = 0;  ///< its place in the list
  };
  void add(const Item& item) { items_.push_back(item); }
  std::size_t size() const { return items_.size(); }
  const Item& at(std::size_t place);

 private:
  std::vector<Item> items_;
  std::size_t sorted_ = 0;
};

/// What was taken, and whether one more may be.
class Taking {
 public:
  explicit Taking(const Request& request) : request_(request) {}

  enum class Spacing { kept, ignored };
  enum class Answer { taken, unavailable, unrenderable };
  Answer offer(const Candidate& candidate, Spacing spacing);
  std::size_t count() const { return taken_.size(); }

 private:
  bool isNear(std::int64_t atMs) const;
  const Request& request_;
  std::set<std::int64_t> taken_;
  std::unordered_set<std::int64_t> unrenderable_;
};

Sample sampleOf(const Candidate& candidate);

}  // namespace halvo::RampSampleSelector
