#include "AmbitudeCore/Backends/Routing/OpenRouterProviderRouting.h"

#include <algorithm>

#include <fmt/format.h>

#include "AmbitudeCore/Backends/Routing/ObservedProviderCost.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo::OpenRouterProviderRouting {
namespace {

struct Ranked {
  std::string member = {};
  double cost = 0;  ///< what it is ranked by
  std::string shown = {};
};

double perMillion(double perToken) { return perToken * 1e6; }

AllIn allIn(const RankingInputs& inputs) {
  std::optional<double> cached;
  for (const auto& [member, pricing] : inputs.pricing) cached = lowerPrice(cached, pricing.cachedPromptPerToken);
  return {.completionToPromptRatio = inputs.usage ? inputs.usage->completionToPromptRatio() : defaultCompletionToPromptRatio,
          .cachedWhenUnknown = cached.value_or(0)};
}

Ranked ranked(const std::string& member, const ProviderPricing& pricing, AllIn at, const ObservedProviderCost::Aggregate* usage) {
  const auto* observed = usage ? usage->measured(member) : nullptr;
  if (!observed) {
    const auto listed = at.cost(pricing);
    return {member, listed, fmt::format("{} ${:.4f}/M @ assumed h={:.2f}", member, perMillion(listed), at.effectiveHitRate)};
  }
  at.effectiveHitRate = observed->hitRate();
  const auto real = observed->costPerPromptToken();
  return {member, real,
          fmt::format("{} ${:.4f}/M @ measured h={:.2f}, observed ${:.4f}/M all-in", member, perMillion(at.cost(pricing)),
                      at.effectiveHitRate, perMillion(real))};
}

/// Names come from the service's replies: the first few, on one line.
std::string someNames(const std::vector<std::string>& names) {
  constexpr std::size_t shown = 5, longest = 40;
  std::vector<std::string> some;
  for (const auto& name : names) {
    if (some.size() == shown) break;
    const auto clean = Text::capped(Text::newlinesToBlanks(name), longest);
    if (std::find(some.begin(), some.end(), clean) == some.end()) some.push_back(clean);
  }
  return Text::join(some, ", ");
}

std::string rowCounts(const ObservedProviderCost::Aggregate* usage) {
  if (!usage || usage->rowsRead == 0) return "; no usage log available, static ranking";
  const auto& out = usage->excluded;
  std::vector<std::string> parts;
  const auto add = [&](int count, const char* what) {
    if (count > 0) parts.push_back(fmt::format("{}{}", count, what));
  };
  add(out.outsideWindow, " outside window");
  add(out.otherModel, " other model");
  add(out.noProvider, " no provider");
  add(out.noCost, " no cost");
  add(out.servedByFallback, " served by fallback");
  if (!out.unknownProvider.empty())
    parts.push_back(fmt::format("{} unknown provider [{}]", out.unknownProvider.size(), someNames(out.unknownProvider)));
  const auto read = fmt::format("; read {} usage row(s)", usage->rowsRead);
  return parts.empty() ? read : read + ", excluded " + Text::join(parts, ", ");
}

}  // namespace

double AllIn::cost(const ProviderPricing& pricing) const {
  return pricing.uncachedPromptPerToken * (1 - effectiveHitRate) +
         effectiveHitRate * pricing.cachedPromptPerToken.value_or(cachedWhenUnknown) +
         pricing.completionPerToken.value_or(0) * completionToPromptRatio;
}

std::optional<double> lowerPrice(std::optional<double> a, std::optional<double> b) { return a && b ? std::min(*a, *b) : a ? a : b; }

std::map<std::string, ProviderPricing> pricingByMember(const std::vector<ProviderPricing>& entries, const std::vector<std::string>& pool,
                                                       double completionToPromptRatio) {
  const auto serves = [](const ProviderPricing& entry, const std::string& member) {
    return entry.slug == member || providerOf(entry.slug) == member;
  };
  std::optional<double> cached;
  for (const auto& entry : entries)
    for (const auto& member : pool)
      if (serves(entry, member)) cached = lowerPrice(cached, entry.cachedPromptPerToken);
  const AllIn assumed{.completionToPromptRatio = completionToPromptRatio, .cachedWhenUnknown = cached.value_or(0)};

  std::map<std::string, ProviderPricing> byMember;
  for (const auto& member : pool)
    for (const auto& entry : entries) {
      if (!serves(entry, member)) continue;
      const auto [known, isNew] = byMember.try_emplace(member, entry);
      if (!isNew && assumed.cost(entry) < assumed.cost(known->second)) known->second = entry;
    }
  return byMember;
}

Ranking rank(const RankingInputs& inputs) {
  if (inputs.pricing.empty()) return {.explanation = "provider ranking: no approved providers in snapshot"};
  const auto at = allIn(inputs);
  std::vector<Ranked> order;
  for (const auto& [member, pricing] : inputs.pricing) order.push_back(ranked(member, pricing, at, inputs.usage));
  // Members come sorted from the map, so a stable sort breaks ties by slug.
  std::stable_sort(order.begin(), order.end(), [](const Ranked& a, const Ranked& b) { return a.cost < b.cost; });

  Ranking ranking;
  std::vector<std::string> shown;
  for (auto& entry : order) {
    ranking.slugs.push_back(std::move(entry.member));
    shown.push_back(std::move(entry.shown));
  }
  for (const auto& member : inputs.unpricedLast) {
    if (inputs.pricing.contains(member)) continue;
    ranking.slugs.push_back(member);
    shown.push_back(member + " (no price known)");
  }
  ranking.explanation = fmt::format("provider ranking (all-in, completion:prompt r={:.2f}): {}{}", at.completionToPromptRatio,
                                    Text::join(shown, "; "), rowCounts(inputs.usage));
  return ranking;
}

}  // namespace halvo::OpenRouterProviderRouting
