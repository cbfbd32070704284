#pragma once

#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "AmbitudeCore/Gate/GateOutcome.h"

/// The shape of the gate's answer: the summary first, so that the model writes its reading before it decides.
namespace halvo::CoachGateSchema {

inline constexpr std::array<std::string_view, 2> declaredKeyOrder{"summary_for_coach", "should_check_in"};

/// The response schema of a constrained call, its properties in the declared order. It must reach the server byte for byte: a server builds
/// its grammar in the order of the properties.
const std::string& schemaJSON();

/// Reads the span from the first "{" to the last "}", so prose around the object is tolerated. Never throws.
GateOutcome parse(std::string_view text);

/// The declared keys that stand in the text, in the order of their first occurrence.
std::vector<std::string_view> observedKeyOrder(std::string_view text);
bool keyOrderIsCorrect(std::string_view text);

/// True when the summary says "you" or the like: the coach reads it, so whom it means would be unclear.
bool summaryAddressesSecondPerson(std::string_view text);

}  // namespace halvo::CoachGateSchema
