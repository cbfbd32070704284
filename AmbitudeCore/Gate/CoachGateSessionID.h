#pragma once

#include <cstdint>
#include <string>

/// The identity sent with every gate call. A stable one for each rules text pins the calls to one deployment with a warm prompt cache; a
/// new routing generation deliberately starts a new one.
namespace halvo::CoachGateSessionID {

/// With the process's present routing generation.
std::string value(bool lowEffort = false);
/// The digest of the rules text, with the generation behind it unless that is 0.
std::string value(bool lowEffort, std::int64_t routingGeneration);

}  // namespace halvo::CoachGateSessionID
