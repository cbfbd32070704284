#include "AmbitudeCore/Backends/Factory/ModelBackendFactory.h"

#include <fmt/format.h>

#include "AmbitudeCore/Backends/CoachServiceError.h"
#include "AmbitudeCore/Backends/Decorators/FallbackModelBackend.h"
#include "AmbitudeCore/Backends/Decorators/RetryingModelBackend.h"
#include "AmbitudeCore/Backends/Decorators/UnavailableModelBackend.h"
#include "AmbitudeCore/Backends/Factory/BackendStacks.h"
#include "AmbitudeCore/Backends/Factory/OfflineMode.h"
#include "AmbitudeCore/Backends/LocalModelBackend.h"
#include "AmbitudeCore/Backends/NonThinkingModelBackend.h"
#include "AmbitudeCore/Backends/Remote/OpenRouterBackend.h"

namespace halvo::ModelBackendFactory {
namespace {

using BackendStacks::Backend;
using BackendStacks::say;

/// Nobody waits at night, but a server that is being started anew is back within this.
const std::vector<double> consolidationBackoffSec{2, 8, 30};
constexpr int consolidationAttempts = 4;

void throwIfFatal(const Environment& environment) {
  if (const auto reason = fatalReason(environment)) throw FatalConfigurationError(*reason);
}

Backend unavailable() {
  return std::make_shared<UnavailableModelBackend>(std::make_exception_ptr(
      CoachServiceError(CoachServiceError::Kind::refused, "the coach service has no address; set AMBITCAP_PROXY_URL", false)));
}

/// What stands behind the nightly job's local model, or nothing, and the end of the log line that says so.
struct NightlyFallback {
  Backend backend = nullptr;
  std::string name = {};
  std::string text = {};
};
NightlyFallback nightlyFallback(const Parts& parts, const std::vector<std::string>& providerSlugs) {
  const auto& environment = parts.surroundings.environment;
  if (OfflineMode::isEnabled(environment)) return {.text = "), no remote fallback (offline mode is on)"};
  const bool hasOne = coachPrimaryIsProxy(environment) || apiKey(environment);
  if (!hasOne) return {.text = "), no remote fallback (no OPENROUTER_API_KEY, or AMBITCAP_MODEL_FALLBACK disables it)"};
  if (!fallbackIsOn(environment)) return {.text = "), no remote fallback (AMBITCAP_MODEL_FALLBACK disables it)"};
  if (!coachPrimaryIsProxy(environment))
    return {.backend = BackendStacks::remote(parts, providerSlugs),
            .name = std::string(OpenRouterBackend::displayName),
            .text = fmt::format(") primary, retried; openrouter ({}) fallback", remoteModel(environment))};
  auto service = BackendStacks::proxy(parts);
  if (!service) return {.text = "), no remote fallback (no usable AMBITCAP_PROXY_URL)"};
  return {.backend = std::move(service), .name = "proxy", .text = ") primary, retried; proxy fallback"};
}

}  // namespace

std::shared_ptr<ModelBackend> fromEnvironment(const Parts& parts, const std::vector<std::string>& providerSlugs) {
  const auto& environment = parts.surroundings.environment;
  if (OfflineMode::isEnabled(environment)) {
    say(parts,
        "model backend: offline mode is on -- local model only; AMBITCAP_MODEL_BACKEND, OPENROUTER_API_KEY and "
        "AMBITCAP_MODEL_FALLBACK are all ignored");
    return BackendStacks::local(parts);
  }
  throwIfFatal(environment);
  const auto name = backendName(environment);
  if (name == "ollama") return BackendStacks::local(parts);
  if (name == "openrouter")
    return BackendStacks::withLocalFallback(parts, BackendStacks::remote(parts, providerSlugs),
                                            std::string(OpenRouterBackend::displayName));
  auto service = BackendStacks::proxy(parts);
  // The local model behind a service without an address would be a choice that nobody made.
  return service ? BackendStacks::withLocalFallback(parts, std::move(service), name) : unavailable();
}

std::shared_ptr<ModelBackend> localCheck(const Parts& parts) {
  return std::make_shared<NonThinkingModelBackend>(
      std::make_shared<LocalModelBackend>(LocalModelConfig{.endpoint = LocalModelConfig::chatEndpoint(parts.localBaseURL),
                                                           .model = localCheckModel(parts.surroundings.environment),
                                                           .timeoutSec = localTimeoutSec},
                                          *parts.transport, parts.surroundings));
}

std::shared_ptr<ModelBackend> forConsolidation(const Parts& parts, const std::function<bool()>& shouldKeepWaiting,
                                               const std::vector<std::string>& providerSlugs) {
  const auto& environment = parts.surroundings.environment;
  throwIfFatal(environment);
  const std::string name(LocalModelBackend::displayName);
  const auto retried = std::make_shared<RetryingModelBackend>(BackendStacks::local(parts),
                                                              RetryingModelBackend::Settings{.name = name,
                                                                                             .maxAttempts = consolidationAttempts,
                                                                                             .backoffSeconds = consolidationBackoffSec,
                                                                                             .shouldKeepWaiting = shouldKeepWaiting,
                                                                                             .log = parts.surroundings.log});
  const auto behind = nightlyFallback(parts, providerSlugs);
  say(parts, fmt::format("consolidation backend: local llama-server ({}{}", localModel(environment), behind.text));
  if (!behind.backend) return retried;
  return std::make_shared<FallbackModelBackend>(retried, behind.backend,
                                                FallbackModelBackend::Settings{.primaryName = name,
                                                                               .fallbackName = behind.name,
                                                                               .cooldownSec = breakerCooldownSec,
                                                                               .escalateTruncatedPrimary = true,
                                                                               .nowMs = parts.surroundings.clock.nowMs,
                                                                               .log = parts.surroundings.log});
}

}  // namespace halvo::ModelBackendFactory
