#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "AmbitudeCore/Backends/Routing/CachedProviderPricing.h"
#include "AmbitudeCore/Backends/Routing/OpenRouterEndpointsResponse.h"

/// A catalogue's entries are usable and survive the cache file unchanged; so does whatever a cache file was read as.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace halvo;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const auto survives = [](const CachedProviderPricing& pricing) {
    for (const auto& entry : pricing.entries)
      if (!OpenRouterEndpointsResponse::isUsable(entry)) std::abort();
    if (CachedProviderPricing::decode(pricing.encode()) != pricing) std::abort();
  };
  if (const auto catalogue = OpenRouterEndpointsResponse::parse(text); catalogue && !catalogue->endpoints.empty())
    survives({.fetchedAtMs = 1, .model = "m", .entries = catalogue->endpoints});
  if (const auto cache = CachedProviderPricing::decode(text)) survives(*cache);
  return 0;
}
