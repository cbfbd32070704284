#include "AmbitudeCore/Backends/Routing/ProviderRoutingRefresh.h"

#include <system_error>

#include <fmt/format.h>

#include "AmbitudeCore/Backends/ProviderRoutingGeneration.h"
#include "AmbitudeCore/Backends/Routing/OpenRouterProviderRouting.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo::ProviderRoutingRefresh {
namespace {

using ObservedProviderCost::Aggregate;

/// A log that can't be read is as good as none: prices alone still rank.
Aggregate usage(const Request& request, const ProviderPricingTable& table) {
  if (!request.usageLog) return {};
  const ObservedProviderCost::Question question{.model = request.environment.model,
                                                .nowMs = request.nowMs,
                                                .slugByDisplayName = ObservedProviderCost::slugsByDisplayName(table.entries)};
  try {
    return request.cache ? request.cache->aggregate(*request.usageLog, question) : ObservedProviderCost::read(*request.usageLog, question);
  } catch (const std::system_error& error) {
    if (request.log) request.log(fmt::format("provider ranking: the usage log could not be read: {}", error.what()));
    return {};
  }
}

StickyProviderSelector::ScoringContext scoring(const OpenRouterProviderRouting::RankingInputs& inputs) {
  StickyProviderSelector::ScoringContext context{.pricing = inputs.pricing,
                                                 .completionToPromptRatio = inputs.usage->completionToPromptRatio()};
  for (const auto& [member, pricing] : inputs.pricing)
    if (const auto* measured = inputs.usage->measured(member)) context.priorHitRate[member] = measured->hitRate();
  return context;
}

std::string joined(const std::vector<std::string>& slugs) { return slugs.empty() ? "none" : Text::join(slugs, ", "); }

}  // namespace

Result refresh(const Request& request, const ProviderPricingResolver::Fetch& fetch) {
  Result result{.slugs = request.previousSlugs, .generation = ProviderRoutingGeneration::get()};
  if (!request.environment.applies) return result;

  const auto table = ProviderPricingResolver::resolve({.baseURL = request.environment.baseURL,
                                                       .model = request.environment.model,
                                                       .apiKey = request.environment.apiKey,
                                                       .cacheURL = request.pricingCacheURL,
                                                       .nowMs = request.nowMs,
                                                       .log = request.log},
                                                      fetch);
  const auto observed = usage(request, table);
  const std::vector<std::string> pool(OpenRouterProviderRouting::defaultPool.begin(), OpenRouterProviderRouting::defaultPool.end());
  OpenRouterProviderRouting::RankingInputs inputs{
      .pricing = OpenRouterProviderRouting::pricingByMember(table.entries, pool, observed.completionToPromptRatio()), .usage = &observed};
  // The snapshot does not list everyone, and a pool of one has nowhere to go when its provider fails.
  if (std::holds_alternative<ProviderPricingTable::CommittedSnapshot>(table.provenance)) inputs.unpricedLast = pool;
  const auto ranking = OpenRouterProviderRouting::rank(inputs);

  result.explanation = table.logLine(request.nowMs) + "\n" + ranking.explanation;
  if (ranking.slugs.empty()) {
    result.explanation += fmt::format("; RANKING CAME BACK EMPTY -- keeping the previous order ({})", joined(request.previousSlugs));
    return result;
  }
  result.slugs = ranking.slugs;
  result.scoring = scoring(inputs);
  result.changed = ranking.slugs != request.previousSlugs;
  if (result.changed) {
    result.generation = ProviderRoutingGeneration::advance();
    result.explanation += fmt::format(
        "\nPROVIDER ORDER CHANGED (generation {}): {} -> {} -- rebuilding the backend (the sticky provider choice and its measurements "
        "carry over and are re-evaluated below) and rotating the gate's OpenRouter session id",
        result.generation, joined(request.previousSlugs), joined(ranking.slugs));
  }
  return result;
}

}  // namespace halvo::ProviderRoutingRefresh
