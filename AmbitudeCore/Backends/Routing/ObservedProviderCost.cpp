#include "AmbitudeCore/Backends/Routing/ObservedProviderCost.h"

#include <algorithm>

#include "AmbitudeCore/Backends/TurnUsageRecordLog.h"

namespace halvo::ObservedProviderCost {
namespace {

/// Adds the row to its provider's sums, or counts why it is left out.
void add(const TurnUsageRecord& row, const Question& question, std::map<std::string, Observation>& bySlug, Exclusions& excluded) {
  if (row.atMs > question.nowMs || row.atMs < question.nowMs - windowSec * 1000) {
    ++excluded.outsideWindow;
  } else if (row.servedByFallback) {  // before cost and provider, which a local answer lacks too
    ++excluded.servedByFallback;
  } else if (row.servedModel != question.model) {
    ++excluded.otherModel;
  } else if (!row.costUSD || *row.costUSD < 0) {
    ++excluded.noCost;
  } else if (!row.provider) {
    ++excluded.noProvider;
  } else if (const auto slug = question.slugByDisplayName.find(*row.provider); slug == question.slugByDisplayName.end()) {
    excluded.unknownProvider.push_back(*row.provider);
  } else {
    auto& sum = bySlug[slug->second];
    const std::int64_t prompt = std::max(row.promptTokens, 0);
    sum.slug = slug->second;
    sum.calls += std::max(row.callCount, 1);
    sum.promptTokens += prompt;
    sum.cachedPromptTokens += std::clamp<std::int64_t>(row.cachedPromptTokens.value_or(0), 0, prompt);
    sum.completionTokens += std::max(row.completionTokens, 0);
    sum.costUSD += *row.costUSD;
  }
}

}  // namespace

double Observation::hitRate() const {
  return promptTokens > 0 ? static_cast<double>(cachedPromptTokens) / static_cast<double>(promptTokens) : 0;
}
double Observation::costPerPromptToken() const { return promptTokens > 0 ? costUSD / static_cast<double>(promptTokens) : 0; }

const Observation* Aggregate::measured(std::string_view slug) const {
  for (const auto& observation : observations)
    if (observation.slug == slug)
      return observation.calls >= minimumMeasuredCalls && observation.promptTokens > 0 ? &observation : nullptr;
  return nullptr;
}

double Aggregate::completionToPromptRatio() const {
  std::int64_t prompt = 0, completion = 0;
  for (const auto& observation : observations) {
    prompt += observation.promptTokens;
    completion += observation.completionTokens;
  }
  return prompt > 0 ? static_cast<double>(completion) / static_cast<double>(prompt)
                    : OpenRouterProviderRouting::defaultCompletionToPromptRatio;
}

std::map<std::string, std::string> slugsByDisplayName(const std::vector<OpenRouterProviderRouting::ProviderPricing>& entries) {
  std::map<std::string, std::string> slugs;
  for (const auto& entry : entries) slugs.try_emplace(entry.displayName, OpenRouterProviderRouting::providerOf(entry.slug));
  return slugs;
}

Aggregate fold(const std::vector<TurnUsageRecord>& rows, const Question& question) {
  Aggregate aggregate;
  std::map<std::string, Observation> bySlug;
  for (const auto& row : rows) {
    if (row.layer != layer) continue;
    ++aggregate.rowsRead;
    add(row, question, bySlug, aggregate.excluded);
  }
  for (auto& [slug, observation] : bySlug) aggregate.observations.push_back(std::move(observation));
  return aggregate;
}

Aggregate read(const std::filesystem::path& usageLog, const Question& question) {
  return fold(TurnUsageRecordLog::read(usageLog, rowLimit), question);
}

}  // namespace halvo::ObservedProviderCost
