#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "AmbitudeCore/Gate/GateGapAnalysis.h"
#include "CaptureShared/Foundation/RawValue.h"
#include "CaptureShared/Records/ClassifierFrameInstant.h"
#include "CaptureShared/Records/ClassifierTick.h"
#include "CaptureShared/Records/GateDecisionRecord.h"

/// A moment picked for review, and how it came to be picked.
namespace halvo::RampSampleSelector {

enum class SamplingMode {
  verdictBlind,       ///< random within each stratum: fit to estimate how often the system is right
  interestingMoments  ///< what stood out: not fit for that
};
/// What it is called among the settings.
std::string settingsLabel(SamplingMode mode);

/// Why a moment stood out.
enum class Reason { stateTransition, lowConfidence, gateDeclinedOnNotAligned, gateDeclinedPastCommitment, gateFailed, gateSpoke };
double weight(Reason reason);

/// A group of moments by what the system decided of them.
struct Stratum {
  enum class Kind { classifierState, gateDecision };
  Kind kind = Kind::classifierState;
  std::string value = {};

  static Stratum state(std::string text) { return {Kind::classifierState, std::move(text)}; }
  static Stratum gate(const GateDecisionRecord& decision) { return {Kind::gateDecision, decision.decision}; }
  static Stratum gap() { return {Kind::gateDecision, "gap"}; }

  std::string name() const;         ///< "state:ON_TASK", "gate:gap"
  std::string displayName() const;  ///< what a person is told
  bool operator==(const Stratum&) const = default;
};

struct Provenance {
  SamplingMode mode = SamplingMode::verdictBlind;
  std::optional<Stratum> stratum = {};  ///< absent for a moment that stood out
  std::int64_t stratumPopulation = 0;   ///< how many moments it was drawn from
  std::int64_t batchSize = 0;           ///< how many were asked for
  std::uint64_t seed = 0;
  bool topUp = false;  ///< it fills a place that its stratum had no right to

  /// "mode=verdict_blind stratum=state:ON_TASK stratum_n=120 batch_n=20 seed=7", with " top_up=1" when it is one; for a label's notes.
  std::string noteFragment() const;
  bool operator==(const Provenance&) const = default;
};

/// What is asked about the gate.
using Layer2Question = std::variant<GateDecisionRecord, GateDecisionGap>;

struct Sample {
  std::int64_t atMs = 0;  ///< the judgment's time
  ClassifierTick tick = {};
  std::optional<GateDecisionRecord> decision = {};  ///< the nearest one
  std::optional<GateDecisionGap> gap = {};          ///< where no decision is near
  double score = 0;
  std::vector<Reason> reasons = {};
  Provenance provenance = {};

  /// Absent where the gate was not asked, and for a failed call, which has no verdict to judge.
  std::optional<Layer2Question> layer2Question() const;
  bool hasLayer2Question() const { return layer2Question().has_value(); }
  ClassifierFrameInstant frameInstant() const { return ClassifierFrameInstant::resolve(tick.screenshotAtMs, atMs); }
  bool operator==(const Sample&) const = default;
};

}  // namespace halvo::RampSampleSelector

namespace halvo {
template <>
struct RawValues<RampSampleSelector::SamplingMode> {
  using Mode = RampSampleSelector::SamplingMode;
  static constexpr std::array table{std::pair{Mode::verdictBlind, "verdict_blind"},
                                    std::pair{Mode::interestingMoments, "interesting_moments"}};
};
template <>
struct RawValues<RampSampleSelector::Reason> {
  using Reason = RampSampleSelector::Reason;
  static constexpr std::array table{std::pair{Reason::stateTransition, "stateTransition"},
                                    std::pair{Reason::lowConfidence, "lowConfidence"},
                                    std::pair{Reason::gateDeclinedOnNotAligned, "gateDeclinedOnNotAligned"},
                                    std::pair{Reason::gateDeclinedPastCommitment, "gateDeclinedPastCommitment"},
                                    std::pair{Reason::gateFailed, "gateFailed"},
                                    std::pair{Reason::gateSpoke, "gateSpoke"}};
};
template <>
struct RawValues<RampSampleSelector::Stratum::Kind> {
  using Kind = RampSampleSelector::Stratum::Kind;
  static constexpr std::array table{std::pair{Kind::classifierState, "state"}, std::pair{Kind::gateDecision, "gate"}};
};
}  // namespace halvo
