#pragma once

#include <vector>

#include "AmbitudeCore/Backends/ChatTypes.h"

/// Templates of local models demand that the speakers alternate.
namespace halvo::AlternatingRoles {

/// Neighbouring plain messages of one role become one, a blank line between them. Calls and their results stay as they are.
std::vector<ChatMessage> merged(std::vector<ChatMessage> messages);

}  // namespace halvo::AlternatingRoles
