#pragma once

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "AmbitudeCore/Backends/BackendSurroundings.h"
#include "AmbitudeCore/Backends/Factory/ModelSelection.h"
#include "AmbitudeCore/Backends/ModelBackend.h"
#include "AmbitudeCore/Backends/Routing/StickyProviderSelector.h"
#include "CaptureShared/Net/HTTPTransport.h"

/// Turns an environment into a backend. Every choice is a pure function of the environment (`ModelSelection.h`), so that all programs
/// choose alike, and nothing is ever chosen that the user did not choose.
namespace halvo::ModelBackendFactory {

inline constexpr double remoteTimeoutSec = 300, localTimeoutSec = 300;
inline constexpr double breakerCooldownSec = 60;

/// A configuration that an agent must not start with; `what()` is the message for its person.
class FatalConfigurationError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// What a stack is built in. What it points at outlives the backend.
struct Parts {
  HTTPTransport* transport = nullptr;
  std::string localBaseURL = {};                          ///< of the inference server, resolved
  std::shared_ptr<StickyProviderSelector> selector = {};  ///< null: the service chooses the provider
  BackendSurroundings surroundings = {};                  ///< its environment is the one that decides
};

/// The coach's backend. `providerSlugs` is the refreshed ranking, best first. Throws `FatalConfigurationError`.
std::shared_ptr<ModelBackend> fromEnvironment(const Parts& parts, const std::vector<std::string>& providerSlugs = {});
/// The backend of small local yes/no questions: never thinks, never leaves this machine.
std::shared_ptr<ModelBackend> localCheck(const Parts& parts);
/// The nightly job's: local first, retried while `shouldKeepWaiting` says so, then remote where the configuration allows it; a cut-off
/// reply is asked for again there. Throws `FatalConfigurationError`.
std::shared_ptr<ModelBackend> forConsolidation(const Parts& parts, const std::function<bool()>& shouldKeepWaiting,
                                               const std::vector<std::string>& providerSlugs = {});

}  // namespace halvo::ModelBackendFactory
