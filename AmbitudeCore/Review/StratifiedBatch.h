#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "AmbitudeCore/Review/RampSample.h"

namespace halvo::RampSampleSelector {

struct StratumAllocation {
  Stratum stratum = {};
  int weight = 0;  ///< its share of a batch, among the weights of all; 0 or less: none
};
/// The weights sum to 40.
const std::vector<StratumAllocation>& defaultAllocation();

/// What a stratum had and got.
struct StratumReport {
  Stratum stratum = {};
  int weight = 0;
  std::int64_t population = 0;
  std::int64_t quota = 0;
  std::int64_t filled = 0;               ///< samples it is named in, top-ups among them
  std::int64_t unrenderableSkipped = 0;  ///< candidates whose frames can't be found
  bool operator==(const StratumReport&) const = default;
};

enum class Absence { noCandidates, crowdedOut };
struct AbsentStratum {
  Stratum stratum = {};
  std::int64_t population = 0;
  Absence absence = Absence::noCandidates;
  bool operator==(const AbsentStratum&) const = default;
};

struct StratifiedBatch {
  std::vector<Sample> samples = {};  ///< in the seeded order: a moment's place tells nothing of its verdict
  std::vector<StratumReport> strata = {};
  std::map<std::string, std::int64_t> unallocatedStates = {};  ///< candidates by a state that has no stratum

  /// Those that got less than their share: of nothing recorded, or of too few moments that are apart. None in a batch without places.
  std::vector<StratumReport> starvedStrata() const;
  std::vector<AbsentStratum> absentStrata() const;
  /// The same in words; absent when every group got its share.
  std::optional<std::string> starvationNotice() const;
};

/// How many places each stratum gets: whole parts of its share first, what is left to the largest fractions, of equal ones in the order
/// given. Strata of weight 0 or less or without candidates get none, and so does everyone below a limit of 1.
std::vector<std::int64_t> quotas(const std::vector<StratumReport>& strata, std::int64_t limit);

}  // namespace halvo::RampSampleSelector
