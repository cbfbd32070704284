#pragma once

#include <optional>

#include "CaptureShared/Foundation/JSONValue.h"

namespace halvo {

/// Minutes that a person or a model gave for a task: a number, or a text of digits; finite, cut to whole minutes, 1 to 10,080 (a week).
/// Absent for anything else.
std::optional<int> cleanTaskMinutes(const JSONValue* value);

}  // namespace halvo
