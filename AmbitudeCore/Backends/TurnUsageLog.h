#pragma once

#include <string>

#include "AmbitudeCore/Backends/ChatTypes.h"

/// What a call cost, as one line for a person.
namespace halvo::TurnUsageLog {

/// "usage: 1 call(s), prompt 41 (no cache figure reported), completion 5, NO REASONING TRACE, cost not reported, ...".
std::string line(const ChatResponse& response);

}  // namespace halvo::TurnUsageLog
