#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "AmbitudeCore/Backends/Routing/OpenRouterProviderRouting.h"
#include "CaptureShared/Foundation/JSONValue.h"

namespace halvo {

/// The routing service's catalogue of one model's endpoints: `data.endpoints[]`.
struct OpenRouterEndpointsResponse {
  /// Dearer than this is no price: ten thousand dollars a million tokens.
  static constexpr double absurdPricePerToken = 0.01;
  static constexpr std::size_t longestName = 200;  ///< bytes of a slug or a display name

  std::vector<OpenRouterProviderRouting::ProviderPricing> endpoints = {};

  /// Absent unless the body is JSON with a list of endpoints. An endpoint without a usable slug or prompt price, or with any price that
  /// can't be read, is left out.
  static std::optional<OpenRouterEndpointsResponse> parse(std::string_view body);

  /// US dollars from a decimal text or a number; absent for anything else and for what is negative, not finite or absurd.
  static std::optional<double> price(const JSONValue& value);
  /// False for a price or a name that no catalogue may tell.
  static bool isUsable(const OpenRouterProviderRouting::ProviderPricing& entry);
};

}  // namespace halvo
