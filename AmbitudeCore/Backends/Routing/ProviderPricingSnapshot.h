#pragma once

#include <string_view>
#include <vector>

#include "AmbitudeCore/Backends/Routing/OpenRouterProviderRouting.h"

/// The offline floor: prices compiled into the program, for one model.
namespace halvo::ProviderPricingSnapshot {

inline constexpr std::string_view model = "deepseek/deepseek-v4-flash-0731";

/// Not a whole catalogue: a provider that is missing here may serve the model all the same.
std::vector<OpenRouterProviderRouting::ProviderPricing> entries();

}  // namespace halvo::ProviderPricingSnapshot
