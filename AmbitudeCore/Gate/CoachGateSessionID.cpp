#include "AmbitudeCore/Gate/CoachGateSessionID.h"

#include <fmt/format.h>

#include "AmbitudeCore/Backends/ProviderRoutingGeneration.h"
#include "AmbitudeCore/Backends/SessionDigest.h"
#include "AmbitudeCore/Gate/CoachGateRules.h"

namespace halvo::CoachGateSessionID {

std::string value(bool lowEffort) { return value(lowEffort, ProviderRoutingGeneration::get()); }

std::string value(bool lowEffort, std::int64_t routingGeneration) {
  const auto& rules = CoachGateRules::prefix(lowEffort);
  if (routingGeneration == 0) return SessionDigest::of(rules);
  return SessionDigest::of(rules + fmt::format("\n[provider-routing-generation {}]", routingGeneration));
}

}  // namespace halvo::CoachGateSessionID
