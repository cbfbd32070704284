#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "AmbitudeCore/Backends/Routing/ProviderPricingResolver.h"
#include "AmbitudeCore/Backends/Routing/RankingCache.h"
#include "AmbitudeCore/Backends/Routing/StickyProviderSelector.h"

/// Keeps the order of providers up to date with prices and measurements.
namespace halvo::ProviderRoutingRefresh {

/// What the configuration says of the remote backend.
struct RemoteChoice {
  bool applies = false;  ///< it is the backend, on the default model, and the user pinned no provider
  std::string model = {};
  std::string apiKey = {};
  std::string baseURL = std::string(ProviderPricingResolver::defaultBaseURL);
};

struct Request {
  std::vector<std::string> previousSlugs = {};
  RemoteChoice environment = {};
  std::optional<std::filesystem::path> pricingCacheURL = {}, usageLog = {};
  std::int64_t nowMs = 0;
  RankingCache* cache = nullptr;  ///< null: the usage log is read afresh
  LogSink log = {};
};

struct Result {
  std::vector<std::string> slugs = {};
  bool changed = false;
  std::int64_t generation = 0;    ///< of `ProviderRoutingGeneration`, after this refresh
  std::string explanation = {};  ///< lines for the log, joined by newlines; empty when the refresh does not apply
  /// For `StickyProviderSelector::setContext`, with `reevaluate(slugs)` behind it; absent when the refresh does not apply or nothing is
  /// priced.
  std::optional<StickyProviderSelector::ScoringContext> scoring = {};
};

/// Resolves prices, folds the usage log and ranks. Advances the generation when the order changed; an empty ranking keeps the order. Where
/// the refresh does not apply, nothing is read or fetched and the slugs come back as they were. Throws `Cancelled` only.
Result refresh(const Request& request, const ProviderPricingResolver::Fetch& fetch);

}  // namespace halvo::ProviderRoutingRefresh
