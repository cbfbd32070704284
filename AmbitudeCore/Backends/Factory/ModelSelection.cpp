#include "AmbitudeCore/Backends/Factory/ModelSelection.h"

#include <fmt/format.h>

#include "AmbitudeCore/Backends/Factory/EndpointOverridePolicy.h"
#include "AmbitudeCore/Backends/Factory/OfflineMode.h"
#include "AmbitudeCore/Backends/LocalModelBackend.h"
#include "AmbitudeCore/Backends/Remote/OpenRouterConfig.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Foundation/Translation.h"

namespace halvo::ModelBackendFactory {
namespace {

std::optional<std::string> setting(const Environment& environment, std::string_view key) {
  const auto text = value(environment, key);
  return text && !Text::isBlank(*text) ? std::optional(std::string(Text::trim(*text))) : std::nullopt;
}

/// AMBITCAP_MODEL names a model of the backend that is chosen; any other backend does not know it.
std::optional<std::string> chosenModel(const Environment& environment, bool isTheirs) {
  return isTheirs ? setting(environment, "AMBITCAP_MODEL") : std::nullopt;
}

std::string fallbackText(const Environment& environment) {
  return fallbackIsOn(environment) ? tr(", fallback=local ({})", fallbackModel(environment)) : tr(", no fallback");
}

std::string providerText(const Environment& environment) {
  if (const auto pin = pinnedProvider(environment)) return fmt::format("provider={} (pinned)", *pin);
  return ranksProviders(environment) ? "provider=unpinned" : "provider=unranked";
}

}  // namespace

std::string backendName(const Environment& environment) {
  const auto name = value(environment, "AMBITCAP_MODEL_BACKEND");
  return !name || Text::isBlank(*name) || *name == "local" ? "ollama" : *name;
}

std::optional<std::string> fatalReason(const Environment& environment) {
  if (OfflineMode::isEnabled(environment)) return std::nullopt;
  const auto name = backendName(environment);
  if (name != "ollama" && name != "openrouter" && name != "proxy")
    return tr("AMBITCAP_MODEL_BACKEND=\"{}\" is not a recognized backend (expected \"ollama\", \"openrouter\" or \"proxy\").",
                       name);
  if (name == "openrouter" && !apiKey(environment))
    return tr("AMBITCAP_MODEL_BACKEND=openrouter but OPENROUTER_API_KEY is not set — refusing to start rather than silently falling back "
              "to the local model.");
  return std::nullopt;
}

std::optional<std::string> apiKey(const Environment& environment) { return setting(environment, "OPENROUTER_API_KEY"); }

bool fallbackIsOn(const Environment& environment) {
  const auto text = Text::lower(setting(environment, "AMBITCAP_MODEL_FALLBACK").value_or(""));
  return text != "0" && text != "false" && text != "no";
}

std::string remoteModel(const Environment& environment) {
  return chosenModel(environment, backendName(environment) != "ollama").value_or(std::string(defaultRemoteModel));
}

std::string reasoningEffort(const Environment& environment) {
  return setting(environment, "AMBITCAP_REASONING_EFFORT").value_or(std::string(defaultReasoningEffort));
}

std::optional<std::string> pinnedProvider(const Environment& environment) { return setting(environment, "AMBITCAP_MODEL_PROVIDER"); }

std::string localModel(const Environment& environment) {
  if (const auto model = chosenModel(environment, backendName(environment) == "ollama")) return *model;
  return setting(environment, "AMBITCHECK_MODEL").value_or(std::string(defaultLocalModel));
}

std::string fallbackModel(const Environment& environment) {
  return setting(environment, "AMBITCAP_FALLBACK_MODEL").value_or(std::string(defaultLocalModel));
}

std::string localCheckModel(const Environment& environment) {
  if (const auto model = setting(environment, "AMBITCAP_LOCAL_CHECK_MODEL")) return *model;
  return setting(environment, "AMBITCHECK_MODEL").value_or(std::string(defaultLocalModel));
}

bool selectsDeepSeek(const Environment& environment) {
  return !OfflineMode::isEnabled(environment) && backendName(environment) == "openrouter" &&
         remoteModel(environment).starts_with("deepseek");
}

bool ranksProviders(const Environment& environment) {
  return selectsDeepSeek(environment) && remoteModel(environment) == defaultRemoteModel && !pinnedProvider(environment);
}

std::string remoteEndpoint(const Environment& environment) {
  const auto given = backendName(environment) == "openrouter" ? setting(environment, "AMBITCAP_MODEL_ENDPOINT") : std::nullopt;
  const auto accepted = given ? EndpointOverridePolicy::validated(*given) : std::nullopt;
  return accepted ? EndpointOverridePolicy::endpoint(*accepted, OpenRouterConfig::chatPath) : OpenRouterConfig().endpoint;
}

bool coachPrimaryIsLocal(const Environment& environment) {
  return OfflineMode::isEnabled(environment) || backendName(environment) == "ollama";
}

bool coachPrimaryIsProxy(const Environment& environment) { return backendName(environment) == "proxy"; }

bool isLocallyServed(std::string_view servedBy, const Environment& environment) {
  return servedBy == "ollama" || servedBy == LocalModelBackend::backendName || servedBy == LocalModelBackend::displayName ||
         coachPrimaryIsLocal(environment);
}

bool proxyWithoutFallback(const Environment& environment) {
  return !OfflineMode::isEnabled(environment) && coachPrimaryIsProxy(environment) && !fallbackIsOn(environment);
}

std::vector<std::string> coachDriverRequiredConfigKeys(const Environment& environment,
                                                       const std::optional<std::string>& productionBaseURL) {
  if (OfflineMode::isEnabled(environment)) return {};
  const auto name = backendName(environment);
  if (name == "openrouter") return {"OPENROUTER_API_KEY"};
  if (name == "proxy" && !productionBaseURL) return {"AMBITCAP_PROXY_URL"};
  return {};
}

std::optional<std::string> proxyURL(const Environment& environment) {
  return EndpointOverridePolicy::validated(setting(environment, "AMBITCAP_PROXY_URL").value_or(""));
}

std::string describeSelection(const Environment& environment) {
  if (OfflineMode::isEnabled(environment))
    return tr("local llama-server ({}) [offline mode -- AMBITCAP_MODEL_BACKEND ignored]", localModel(environment));
  const auto name = backendName(environment);
  if (name == "ollama") return tr("local llama-server ({})", localModel(environment));
  if (name == "openrouter")
    return tr("openrouter ({}, reasoning={}, {}){}", remoteModel(environment), reasoningEffort(environment), providerText(environment),
              fallbackText(environment));
  if (name != "proxy") return fatalReason(environment).value_or(name);
  const auto url = proxyURL(environment);
  // Without an address nothing stands behind it either.
  if (!url) return tr("proxy (NOT CONFIGURED)");
  return tr("proxy ({}){}", *url, fallbackText(environment));
}

}  // namespace halvo::ModelBackendFactory
