#include "AmbitudeCore/Review/RampSample.h"

#include <fmt/format.h>

#include "CaptureShared/Foundation/Translation.h"

namespace halvo::RampSampleSelector {

std::string settingsLabel(SamplingMode mode) {
  switch (mode) {
    case SamplingMode::verdictBlind: return tr("Random sample");
    case SamplingMode::interestingMoments: return tr("Stood out");
  }
  return {};
}

double weight(Reason reason) {
  switch (reason) {
    case Reason::stateTransition: return 3.0;
    case Reason::lowConfidence: return 5.0;
    case Reason::gateDeclinedOnNotAligned: return 4.0;
    case Reason::gateDeclinedPastCommitment: return 6.0;
    case Reason::gateFailed: return 2.0;
    case Reason::gateSpoke: return 4.0;
  }
  return 0;
}

std::string Stratum::name() const { return fmt::format("{}:{}", rawValue(kind), value); }

std::string Stratum::displayName() const {
  if (kind == Kind::gateDecision) {
    if (value == "check_in") return tr("times it spoke");
    if (value == "no_check_in") return tr("times it stayed quiet");
    if (value == "gap") return tr("stretches it never got asked about");
  }
  return value;
}

std::string Provenance::noteFragment() const {
  auto text = fmt::format("mode={}", rawValue(mode));
  if (stratum) text += " stratum=" + stratum->name();
  text += fmt::format(" stratum_n={} batch_n={} seed={}", stratumPopulation, batchSize, seed);
  return topUp ? text + " top_up=1" : text;
}

std::optional<Layer2Question> Sample::layer2Question() const {
  if (decision) return decision->isLabelable() ? std::optional<Layer2Question>(*decision) : std::nullopt;
  return gap ? std::optional<Layer2Question>(*gap) : std::nullopt;
}

}  // namespace halvo::RampSampleSelector
