#include "AmbitudeCore/Backends/Routing/ProviderPricingSnapshot.h"

namespace halvo::ProviderPricingSnapshot {

std::vector<OpenRouterProviderRouting::ProviderPricing> entries() {
  return {
      {"deepinfra/fp8", "DeepInfra", 6e-8, 1.5e-8, 1.8e-7},
      {"open-inference/fp8", "OpenInference", 5e-8, 1.3e-8, 1.6e-7},
      {"cloudflare", "Cloudflare", 4.4e-7, 1.4e-8, 1.32e-6},
  };
}

}  // namespace halvo::ProviderPricingSnapshot
