#include "AmbitudeCore/Gate/Layer3Flag.h"

namespace halvo::Layer3Flag {

bool isArmed(const Environment& environment) { return value(environment, envVar) == "1"; }

}  // namespace halvo::Layer3Flag
