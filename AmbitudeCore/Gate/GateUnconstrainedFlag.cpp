#include "AmbitudeCore/Gate/GateUnconstrainedFlag.h"

#include "CaptureShared/Foundation/Text.h"

namespace halvo::GateUnconstrainedFlag {

bool isArmed(const Environment& environment) {
  const auto given = value(environment, envVar);
  if (!given) return true;
  const auto word = Text::lower(Text::trim(*given));
  return word != "0" && word != "false" && word != "no";
}

}  // namespace halvo::GateUnconstrainedFlag
