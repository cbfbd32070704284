#include "AmbitudeCore/Backends/Factory/BackendStacks.h"

#include "AmbitudeCore/Backends/AlternatingRoles.h"
#include "AmbitudeCore/Backends/Decorators/FallbackModelBackend.h"
#include "AmbitudeCore/Backends/Decorators/PreparingModelBackend.h"
#include "AmbitudeCore/Backends/Decorators/ThinkingOverflowRetryBackend.h"
#include "AmbitudeCore/Backends/Factory/CoachServiceHooks.h"
#include "AmbitudeCore/Backends/Factory/EndpointOverridePolicy.h"
#include "AmbitudeCore/Backends/Factory/OfflineMode.h"
#include "AmbitudeCore/Backends/LocalInferenceWire.h"
#include "AmbitudeCore/Backends/LocalModelBackend.h"
#include "AmbitudeCore/Backends/Remote/OpenRouterBackend.h"
#include "AmbitudeCore/Backends/Remote/OutboundRedaction.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo::BackendStacks {
namespace {

using namespace ModelBackendFactory;

constexpr std::string_view endpointKey = "AMBITCAP_MODEL_ENDPOINT";

const Environment& environmentOf(const Parts& parts) { return parts.surroundings.environment; }

/// The configured endpoint as an accepted URL; a refusal is logged.
std::optional<std::string> endpointOverride(const Parts& parts) {
  const auto given = value(environmentOf(parts), endpointKey);
  if (!given || Text::isBlank(*given)) return std::nullopt;
  auto accepted = EndpointOverridePolicy::validated(*given);
  if (!accepted) say(parts, "model backend: " + EndpointOverridePolicy::refusalReason(*given, endpointKey));
  return accepted;
}

/// The same for the local model. What an offline coach is told must not reach another machine, nor a relay that was meant for the remote
/// service.
std::optional<std::string> localOverride(const Parts& parts) {
  const auto& environment = environmentOf(parts);
  const bool isTheirs = backendName(environment) == "ollama";
  if (!isTheirs && !OfflineMode::isEnabled(environment)) return std::nullopt;
  auto accepted = endpointOverride(parts);
  if (!accepted || !OfflineMode::isEnabled(environment)) return accepted;
  if (isTheirs && EndpointOverridePolicy::isLoopback(*accepted)) return accepted;
  say(parts, std::string("model backend: ") + std::string(endpointKey) +
                 (isTheirs ? " ignored: offline mode accepts a loopback host only"
                           : " ignored: offline mode is on, and it is not the local model's"));
  return std::nullopt;
}

std::shared_ptr<LocalModelBackend> server(const Parts& parts, std::string endpoint, const std::string& model) {
  return std::make_shared<LocalModelBackend>(
      LocalModelConfig{.endpoint = std::move(endpoint), .model = model, .timeoutSec = localTimeoutSec}, *parts.transport,
      parts.surroundings);
}

Backend withOverflowRetry(const Parts& parts, Backend backend) {
  return std::make_shared<ThinkingOverflowRetryBackend>(std::move(backend), std::string(LocalModelBackend::displayName),
                                                        parts.surroundings.log);
}

}  // namespace

void say(const Parts& parts, const std::string& line) {
  if (parts.surroundings.log) parts.surroundings.log(line);
}

Backend machineLocal(const Parts& parts, const std::string& model) {
  return withOverflowRetry(parts, server(parts, LocalModelConfig::chatEndpoint(parts.localBaseURL), model));
}

Backend local(const Parts& parts) {
  const auto model = localModel(environmentOf(parts));
  const auto url = localOverride(parts);
  if (!url) return machineLocal(parts, model);
  Backend backend = server(parts, EndpointOverridePolicy::endpoint(*url, LocalInferenceWire::chatPath), model);
  if (!EndpointOverridePolicy::isLoopback(*url))
    backend = std::make_shared<PreparingModelBackend>(
        std::move(backend), [](const std::vector<ChatMessage>& messages) { return OutboundRedaction::redacted(messages); });
  return withOverflowRetry(parts, std::move(backend));
}

std::vector<std::string> providerOrder(const Environment& environment, const std::vector<std::string>& ranking) {
  if (const auto pin = pinnedProvider(environment)) return {*pin};
  if (!ranksProviders(environment)) return {};
  if (!ranking.empty()) return ranking;
  return {OpenRouterProviderRouting::defaultPool.begin(), OpenRouterProviderRouting::defaultPool.end()};
}

Backend remote(const Parts& parts, const std::vector<std::string>& ranking) {
  const auto& environment = environmentOf(parts);
  if (backendName(environment) == "openrouter") endpointOverride(parts);  // tells of a refusal
  OpenRouterConfig config{.endpoint = remoteEndpoint(environment),
                          .model = remoteModel(environment),
                          .apiKey = apiKey(environment).value_or(""),
                          .reasoningEffort = reasoningEffort(environment),
                          .timeoutSec = remoteTimeoutSec,
                          .providerOrder = providerOrder(environment, ranking)};
  // Without a selector to pin it, the pin must stand in the request itself.
  if (pinnedProvider(environment)) config.acceptableProviders = config.providerOrder;
  return std::make_shared<OpenRouterBackend>(std::move(config), *parts.transport, parts.selector, parts.surroundings);
}

Backend proxy(const Parts& parts) {
  const auto& environment = environmentOf(parts);
  const auto url = proxyURL(environment);
  if (!url) {
    const auto given = value(environment, "AMBITCAP_PROXY_URL");
    if (given && !Text::isBlank(*given))
      say(parts, "model backend: " + EndpointOverridePolicy::refusalReason(*given, "AMBITCAP_PROXY_URL"));
    say(parts, "model backend: proxy selected but no usable AMBITCAP_PROXY_URL and no compiled-in URL");
    return nullptr;
  }
  // The key is the routing service's and stays away from here.
  return std::make_shared<OpenRouterBackend>(
      OpenRouterConfig{.endpoint = EndpointOverridePolicy::endpoint(*url, OpenRouterConfig::chatPath),
                       .model = remoteModel(environment),
                       .reasoningEffort = reasoningEffort(environment),
                       .timeoutSec = remoteTimeoutSec},
      *parts.transport, nullptr, parts.surroundings, CoachServiceHooks::make());
}

Backend withLocalFallback(const Parts& parts, Backend primary, const std::string& primaryName) {
  const auto& environment = environmentOf(parts);
  if (!fallbackIsOn(environment)) return primary;
  // The conversation was composed for the primary.
  auto fallback = std::make_shared<PreparingModelBackend>(machineLocal(parts, fallbackModel(environment)), AlternatingRoles::merged);
  return std::make_shared<FallbackModelBackend>(std::move(primary), std::move(fallback),
                                                FallbackModelBackend::Settings{.primaryName = primaryName,
                                                                               .fallbackName = std::string(LocalModelBackend::displayName),
                                                                               .cooldownSec = breakerCooldownSec,
                                                                               .nowMs = parts.surroundings.clock.nowMs,
                                                                               .log = parts.surroundings.log});
}

}  // namespace halvo::BackendStacks
