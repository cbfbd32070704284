#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "AmbitudeCore/Backends/Routing/OpenRouterProviderRouting.h"
#include "AmbitudeCore/Backends/TurnUsageRecord.h"

/// What providers really cost, read from turn-usage.jsonl.
namespace halvo::ObservedProviderCost {

inline constexpr std::size_t rowLimit = 5000;            ///< of the newest rows
inline constexpr std::int64_t windowSec = 1'209'600;     ///< 14 days
inline constexpr std::string_view layer = "gate";        ///< its calls are alike, so that providers compare
inline constexpr std::int64_t minimumMeasuredCalls = 20;  ///< before a measured figure replaces a listed one

/// The sums of one provider's rows.
struct Observation {
  std::string slug = {};  ///< the provider's, as pools name it
  std::int64_t calls = 0, promptTokens = 0, cachedPromptTokens = 0, completionTokens = 0;
  double costUSD = 0;
  double hitRate() const;             ///< 0 to 1; 0 without prompt tokens
  double costPerPromptToken() const;  ///< US dollars, completion included, as listed all-in prices are
  bool operator==(const Observation&) const = default;
};

/// Rows that were not summed, each counted once, under the first that applies of: window, fallback, model, cost, provider.
struct Exclusions {
  int outsideWindow = 0, noCost = 0, noProvider = 0;
  std::vector<std::string> unknownProvider = {};  ///< the name of each such row
  int otherModel = 0, servedByFallback = 0;
  bool operator==(const Exclusions&) const = default;
};

struct Aggregate {
  std::vector<Observation> observations = {};  ///< by slug
  Exclusions excluded = {};
  int rowsRead = 0;  ///< of the layer

  /// A provider with enough calls and prompt tokens; null otherwise.
  const Observation* measured(std::string_view slug) const;
  /// Over all observations; the default when they hold no prompt tokens.
  double completionToPromptRatio() const;
  bool operator==(const Aggregate&) const = default;
};

struct Question {
  std::string model = {};
  std::int64_t nowMs = 0;
  std::map<std::string, std::string> slugByDisplayName = {};  ///< rows tell display names, pools slugs
};

std::map<std::string, std::string> slugsByDisplayName(const std::vector<OpenRouterProviderRouting::ProviderPricing>& entries);

Aggregate fold(const std::vector<TurnUsageRecord>& rows, const Question& question);
/// The fold of the log's newest rows. A missing log has none. Throws `std::system_error` when it can't be read.
Aggregate read(const std::filesystem::path& usageLog, const Question& question);

}  // namespace halvo::ObservedProviderCost
