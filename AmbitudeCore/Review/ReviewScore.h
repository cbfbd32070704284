#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "CaptureShared/Labels/LabelHistory.h"
#include "CaptureShared/Records/ClassifierTick.h"

/// How often the classifier's verdicts agree with the person who was there.
namespace halvo::ReviewScore {

/// The state that a label says would have been right; absent where none would: "ambiguous", and "switching_tasks", which no state tells.
std::optional<std::string_view> stateFor(std::string_view label);

enum class Evidence {
  blindRandom,  ///< blind answers on randomly drawn moments: fit to estimate with
  everything    ///< also answers given after the verdict, on moments that stood out, and a check-in's thumbs
};

struct StateScore {
  std::int64_t verdicts = 0;  ///< moments with this verdict
  std::int64_t truths = 0;    ///< moments that it was right for
  std::int64_t agreed = 0;    ///< both

  std::optional<double> precision() const;  ///< of the verdicts; absent without any
  std::optional<double> recall() const;     ///< of the truths; likewise
  bool operator==(const StateScore&) const = default;
};
struct Score {
  std::map<std::string, StateScore> states = {};
  std::int64_t scored = 0;
  std::int64_t agreed = 0;
  std::int64_t noTruth = 0;          ///< left out: the label names no state
  std::int64_t noVerdict = 0;        ///< left out: nothing was judged then, or no longer stands in the log
  /// Left out, by state: BREAK and NO_TASK follow from the declaration alone, and no answer of a review could agree with them.
  std::map<std::string, std::int64_t> declared = {};
  std::int64_t otherEvidence = 0;    ///< left out: not the evidence that was asked for
  std::int64_t revisionsPassed = 0;  ///< newer answers after the reveal, passed over for the blind one
  bool operator==(const Score&) const = default;
};
/// One label a moment: the newest blind one, else the newest.
Score score(std::span<const LabelHistory::Row> rows, std::span<const ClassifierTick> ticks, Evidence evidence);

}  // namespace halvo::ReviewScore
