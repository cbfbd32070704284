#include "AmbitudeCore/Gate/CoachGateRules.h"

namespace halvo::CoachGateRules {

const std::string& prefix(bool lowEffort) {
  static const std::string plain(text);
  static const std::string low = plain + "\n\n" + std::string(lowEffortNote);
  return lowEffort ? low : plain;
}

}  // namespace halvo::CoachGateRules
