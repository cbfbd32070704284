#pragma once

#include <memory>
#include <string>
#include <vector>

#include "AmbitudeCore/Backends/Factory/ModelBackendFactory.h"

/// The pieces that the factory's backends are made of.
namespace halvo::BackendStacks {

using Backend = std::shared_ptr<ModelBackend>;

/// Tells the log, if there is one.
void say(const ModelBackendFactory::Parts& parts, const std::string& line);

/// The inference server of this machine and a second try without thinking; no override ever moves it.
Backend machineLocal(const ModelBackendFactory::Parts& parts, const std::string& model);
/// The coach's local model: where AMBITCAP_MODEL_ENDPOINT is meant for it and accepted, that is where it is; a server that is not on this
/// machine gets redacted text. Offline, no such server is accepted.
Backend local(const ModelBackendFactory::Parts& parts);
/// The routing service, without a fallback. The key must be there.
Backend remote(const ModelBackendFactory::Parts& parts, const std::vector<std::string>& ranking);
/// The coach service, without a fallback; null without a usable address, which is logged.
Backend proxy(const ModelBackendFactory::Parts& parts);
/// The providers to be asked, best first: the pinned one, else the ranking or, before there is one, the default pool, where they are ranked
/// at all.
std::vector<std::string> providerOrder(const Environment& environment, const std::vector<std::string>& ranking);
/// `primary` with the local fallback behind it, where the configuration has one.
Backend withLocalFallback(const ModelBackendFactory::Parts& parts, Backend primary, const std::string& primaryName);

}  // namespace halvo::BackendStacks
