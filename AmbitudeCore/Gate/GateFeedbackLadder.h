#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <span>
#include <vector>

#include "AmbitudeCore/Gate/GateLabel.h"
#include "AmbitudeCore/Gate/GateLabelEra.h"

/// Replays labelled decisions against a gate under test, in three passes that are looked at in order.
namespace halvo::GateFeedbackLadder {

enum class Pass {
  dead,            ///< moments that need a word: a gate that never speaks fails them all
  overcorrection,  ///< moments that need silence: a gate made to speak more fails here
  residual         ///< moments of an older generation: told, and never held against the gate
};
enum class Role {
  corrective,   ///< the gate was wrong and has to change
  confirmatory  ///< the gate was right and has to stay so
};

struct LabelRow {
  std::int64_t atMs = 0;  ///< the decision's time
  GateLabel label = GateLabel::rightToStayQuiet;
};

struct Case {
  std::int64_t atMs = 0;
  GateLabel label = GateLabel::rightToStayQuiet;
  bool actual = false;    ///< did the gate speak
  bool required = false;  ///< should it have
  Role role = Role::confirmatory;
  Pass pass = Pass::overcorrection;
  GateLabelEra era = GateLabelEra::current;
  bool operator==(const Case&) const = default;
};

struct PassResult {
  Pass pass = Pass::dead;
  int satisfied = 0;
  int total = 0;
  std::vector<std::int64_t> failures = {};  ///< their times
  bool operator==(const PassResult&) const = default;
};
struct Outcome {
  std::array<PassResult, 3> passes = {};  ///< in the order of `Pass`
  bool isGreen = false;                   ///< no failure in `dead` or `overcorrection`
  bool operator==(const Outcome&) const = default;
};

/// One case a decision, oldest first; of several labels of one decision the last row counts.
std::vector<Case> cases(std::span<const LabelRow> labels, const GateLabelEraBoundaries& boundaries = {});
/// `replayed` holds for each time whether the gate under test spoke. A case that was not replayed, or whose call failed, proves nothing
/// and counts as a failure.
Outcome outcome(std::span<const Case> cases, const std::map<std::int64_t, bool>& replayed);

}  // namespace halvo::GateFeedbackLadder
