#include "AmbitudeCore/Backends/Factory/Onboarding.h"

#include <fmt/format.h>

#include "AmbitudeCore/Backends/Factory/BackendStacks.h"
#include "AmbitudeCore/Backends/Factory/OfflineMode.h"

namespace halvo::ModelBackendFactory {

std::shared_ptr<ModelBackend> forOnboarding(const Parts& parts, Onboarding::Where where) {
  const auto& environment = parts.surroundings.environment;
  if (where == Onboarding::Where::localOnly || OfflineMode::isEnabled(environment)) {
    BackendStacks::say(parts, "onboarding backend: local model (local-only was chosen)");
    return BackendStacks::local(parts);
  }
  if (!apiKey(environment)) {
    BackendStacks::say(parts,
                       "onboarding backend: no OPENROUTER_API_KEY -- refusing to silently fall back to the local model (onboarding "
                       "must never run on the local model, #770)");
    throw Onboarding::Error(Onboarding::Error::Kind::noAPIKey);
  }
  BackendStacks::say(
      parts, fmt::format("onboarding backend: openrouter ({}, reasoning={})", remoteModel(environment), reasoningEffort(environment)));
  return BackendStacks::remote(parts, {});
}

}  // namespace halvo::ModelBackendFactory
