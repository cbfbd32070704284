#include "AmbitudeCore/Gate/GateDecisionLogFlag.h"

namespace halvo::GateDecisionLogFlag {

bool isArmed(const Environment& environment) { return value(environment, envVar) == "1"; }

}  // namespace halvo::GateDecisionLogFlag
