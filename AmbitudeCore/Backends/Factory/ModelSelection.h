#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "CaptureShared/Foundation/Environment.h"

/// What an environment asks for, read key by key. Pure; every program that reads the same environment decides the same. A blank value is
/// an absent one.
namespace halvo::ModelBackendFactory {

inline constexpr std::string_view defaultRemoteModel = "deepseek/deepseek-v4-flash-0731";
inline constexpr std::string_view defaultReasoningEffort = "low";
inline constexpr std::string_view defaultLocalModel = "gemma4:12b-it-qat";

/// AMBITCAP_MODEL_BACKEND; absent, blank or "local" is "ollama".
std::string backendName(const Environment& environment);
/// Why an agent must not start with this environment; absent when it may.
std::optional<std::string> fatalReason(const Environment& environment);

std::optional<std::string> apiKey(const Environment& environment);
/// AMBITCAP_MODEL_FALLBACK: on unless it is "0", "false" or "no".
bool fallbackIsOn(const Environment& environment);
/// AMBITCAP_MODEL where that names a remote model, else the default.
std::string remoteModel(const Environment& environment);
std::string reasoningEffort(const Environment& environment);
/// AMBITCAP_MODEL_PROVIDER: the one provider to be asked.
std::optional<std::string> pinnedProvider(const Environment& environment);
/// AMBITCAP_MODEL where that names a local model, else AMBITCHECK_MODEL, else the default.
std::string localModel(const Environment& environment);
/// The local model behind a remote one.
std::string fallbackModel(const Environment& environment);
/// The model of small yes/no questions.
std::string localCheckModel(const Environment& environment);

/// Online, "openrouter", and a model whose name begins "deepseek".
bool selectsDeepSeek(const Environment& environment);
/// Online, "openrouter", on the default model, and no provider pinned: then measured cost decides who is asked.
bool ranksProviders(const Environment& environment);
/// The routing service's chat endpoint: the accepted AMBITCAP_MODEL_ENDPOINT where that is its, else the service's own.
std::string remoteEndpoint(const Environment& environment);

bool coachPrimaryIsLocal(const Environment& environment);
bool coachPrimaryIsProxy(const Environment& environment);
/// Whether an answer of that `servedBy` was given on this machine.
bool isLocallyServed(std::string_view servedBy, const Environment& environment);
/// The coach service, and nothing behind it when it is away.
bool proxyWithoutFallback(const Environment& environment);

/// The keys that the coach's agent can't start without. `productionBaseURL` is the coach service's compiled-in address, if there is one.
std::vector<std::string> coachDriverRequiredConfigKeys(const Environment& environment,
                                                       const std::optional<std::string>& productionBaseURL = {});

/// The coach service's address; absent unless an acceptable one is configured.
std::optional<std::string> proxyURL(const Environment& environment);

/// One line on which model the coach runs: "provider=unpinned" where measured cost decides who is asked, "provider=unranked" where the
/// service does.
std::string describeSelection(const Environment& environment);

}  // namespace halvo::ModelBackendFactory
