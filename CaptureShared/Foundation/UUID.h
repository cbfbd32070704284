#pragma once

#include <string>

namespace halvo {

/// A random UUID (version 4) in its text form, in capitals.
std::string newUUID();

}  // namespace halvo
