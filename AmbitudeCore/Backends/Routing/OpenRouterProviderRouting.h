#pragma once

#include <array>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace halvo::ObservedProviderCost {
struct Aggregate;
}

/// One remote model is sold by many providers. What each of them asks, and which is cheapest all in.
namespace halvo::OpenRouterProviderRouting {

/// Providers a call may go to, and those proved to answer within a response schema.
inline constexpr std::array<std::string_view, 3> defaultPool{"deepinfra", "coreweave", "fireworks"};
inline constexpr std::array<std::string_view, 2> schemaApproved{"deepinfra", "fireworks"};
/// Used while nothing is measured.
inline constexpr double defaultCompletionToPromptRatio = 0.11;
inline constexpr double defaultCacheHitRate = 0.56;

/// A slug's provider: the part before its first "/", so that "deepinfra/fp8" is "deepinfra".
inline std::string_view providerOf(std::string_view slug) { return slug.substr(0, slug.find('/')); }

/// Prices in US dollars per token.
struct ProviderPricing {
  std::string slug = {};
  std::string displayName = {};
  double uncachedPromptPerToken = 0;
  std::optional<double> cachedPromptPerToken = {}, completionPerToken = {};
  bool operator==(const ProviderPricing&) const = default;
};

/// US dollars a prompt token, its share of the completion included: uncached × (1 − e) + cached × e + completion × r.
struct AllIn {
  double effectiveHitRate = defaultCacheHitRate;                     ///< e: the share of prompt tokens that come from the cache
  double completionToPromptRatio = defaultCompletionToPromptRatio;  ///< r
  double cachedWhenUnknown = 0;                                      ///< for an entry that tells no price of a cached token
  /// An absent completion price counts 0.
  double cost(const ProviderPricing& pricing) const;
};

/// The lower of two prices of a cached token; absent only when both are.
std::optional<double> lowerPrice(std::optional<double> a, std::optional<double> b);

/// Entries by pool member: each member's is the cheapest at the assumed hit rate of those that bear its slug or whose provider it is.
/// A member that no entry prices is left out.
std::map<std::string, ProviderPricing> pricingByMember(const std::vector<ProviderPricing>& entries, const std::vector<std::string>& pool,
                                                       double completionToPromptRatio = defaultCompletionToPromptRatio);

struct Ranking {
  std::vector<std::string> slugs = {};  ///< best first
  std::string explanation = {};         ///< one line for the log
  bool operator==(const Ranking&) const = default;
};

struct RankingInputs {
  std::map<std::string, ProviderPricing> pricing = {};      ///< by pool member
  const ObservedProviderCost::Aggregate* usage = nullptr;  ///< null: no usage log
  std::vector<std::string> unpricedLast = {};               ///< members that may serve all the same, in this order
};

/// Cheapest first, ties by slug. A member measured over enough calls ranks by what it really cost a prompt token, the others by their
/// listed price at the assumed hit rate. Empty when nothing is priced.
Ranking rank(const RankingInputs& inputs);

}  // namespace halvo::OpenRouterProviderRouting
