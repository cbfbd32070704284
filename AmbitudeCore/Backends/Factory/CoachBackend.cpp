#include "AmbitudeCore/Backends/Factory/CoachBackend.h"

#include "AmbitudeCore/Backends/Factory/BackendStacks.h"
#include "AmbitudeCore/Backends/Factory/RefreshedModelBackend.h"
#include "AmbitudeCore/Backends/Routing/ProviderRoutingRefresh.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo::ModelBackendFactory {

std::shared_ptr<ModelBackend> refreshedFromEnvironment(const Parts& parts, const RoutingFiles& files) {
  const auto& environment = parts.surroundings.environment;
  if (!ranksProviders(environment)) return fromEnvironment(parts);

  using Order = RefreshedModelBackend::Order;
  const ProviderRoutingRefresh::RemoteChoice choice{.applies = true,
                                                    .model = remoteModel(environment),
                                                    .apiKey = apiKey(environment).value_or(""),
                                                    .baseURL = ProviderPricingResolver::baseURLOf(remoteEndpoint(environment))};
  const auto refresh = [parts, files, choice, cache = std::make_shared<RankingCache>()](const Order& previous,
                                                                                        const std::stop_token& stop) {
    auto result = ProviderRoutingRefresh::refresh({.previousSlugs = previous,
                                                   .environment = choice,
                                                   .pricingCacheURL = files.pricingCache,
                                                   .usageLog = files.usageLog,
                                                   .nowMs = parts.surroundings.clock.nowMs(),
                                                   .cache = cache.get(),
                                                   .log = parts.surroundings.log},
                                                  ProviderPricingResolver::fetchOver(*parts.transport, stop));
    for (const auto line : Text::split(result.explanation, '\n')) BackendStacks::say(parts, std::string(line));
    if (parts.selector && result.scoring) {
      parts.selector->setContext(*result.scoring);
      parts.selector->reevaluate(result.slugs);
    }
    return result.slugs;
  };
  return std::make_shared<RefreshedModelBackend>(
      RefreshedModelBackend::Settings{.order = BackendStacks::providerOrder(environment, {}),
                                      .build = [parts](const Order& order) { return fromEnvironment(parts, order); },
                                      .refresh = refresh,
                                      .clock = parts.surroundings.clock});
}

}  // namespace halvo::ModelBackendFactory
