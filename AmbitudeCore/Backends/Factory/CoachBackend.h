#pragma once

#include <filesystem>
#include <memory>

#include "AmbitudeCore/Backends/Factory/ModelBackendFactory.h"
#include "AmbitudeCore/Backends/Routing/ProviderPricingResolver.h"

namespace halvo::ModelBackendFactory {

/// Where a coach's agent keeps what provider routing learns.
struct RoutingFiles {
  std::filesystem::path pricingCache = {}, usageLog = {};
};

/// As `fromEnvironment`, kept on the order of providers that prices and measurements give, where they are ranked at all: the order is
/// looked at at once and every hour, off the caller's thread, and the selector is carried over. Throws `FatalConfigurationError`.
std::shared_ptr<ModelBackend> refreshedFromEnvironment(const Parts& parts, const RoutingFiles& files);

}  // namespace halvo::ModelBackendFactory
