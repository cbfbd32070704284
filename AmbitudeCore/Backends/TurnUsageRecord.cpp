#include "AmbitudeCore/Backends/TurnUsageRecord.h"

#include <limits>

namespace halvo {
namespace {

std::optional<int> smallInteger(const JSONObject& object, std::string_view key) {
  const auto number = object.integer(key);
  if (!number || *number < std::numeric_limits<int>::min() || *number > std::numeric_limits<int>::max()) return std::nullopt;
  return static_cast<int>(*number);
}

}  // namespace

std::optional<TurnUsageRecord> TurnUsageRecord::from(const ChatResponse& response, const Call& call) {
  if (!response.usage) return std::nullopt;
  const auto provenance = response.provenance.value_or(ChatProvenance{});
  return TurnUsageRecord{.atMs = call.asOfMs,
                         .layer = call.layer,
                         .provider = provenance.provider,
                         .servedModel = provenance.servedModel,
                         .generationID = provenance.generationID,
                         .promptTokens = response.usage->promptTokens,
                         .completionTokens = response.usage->completionTokens,
                         .cachedPromptTokens = response.usage->cachedPromptTokens,
                         .reasoningTokens = response.usage->reasoningTokens,
                         .costUSD = response.usage->costUSD,
                         .callCount = response.usage->callCount,
                         .servedByFallback = response.servedByFallback,
                         .buildVersion = call.buildVersion};
}

JSONValue TurnUsageRecord::encoded() const {
  JSONObject row{{"v", v},
                 {"at_ms", atMs},
                 {"layer", layer},
                 {"prompt_tokens", promptTokens},
                 {"completion_tokens", completionTokens},
                 {"call_count", callCount},
                 {"served_by_fallback", servedByFallback}};
  const auto add = [&](const char* key, const auto& field) {
    if (field) row.set(key, *field);
  };
  add("provider", provider);
  add("served_model", servedModel);
  add("generation_id", generationID);
  add("cached_prompt_tokens", cachedPromptTokens);
  add("reasoning_tokens", reasoningTokens);
  add("cost_usd", costUSD);
  add("build_version", buildVersion);
  return row;
}

std::optional<TurnUsageRecord> TurnUsageRecord::decode(std::string_view line) {
  const auto parsed = JSONValue::parse(line);
  const auto* row = parsed ? parsed->objectValue() : nullptr;
  if (!row) return std::nullopt;
  const auto atMs = row->integer("at_ms");
  auto layer = row->string("layer");
  const auto prompt = smallInteger(*row, "prompt_tokens"), completion = smallInteger(*row, "completion_tokens");
  if (!atMs || !layer || !prompt || !completion) return std::nullopt;
  return TurnUsageRecord{.v = smallInteger(*row, "v").value_or(1),
                         .atMs = *atMs,
                         .layer = std::move(*layer),
                         .provider = row->string("provider"),
                         .servedModel = row->string("served_model"),
                         .generationID = row->string("generation_id"),
                         .promptTokens = *prompt,
                         .completionTokens = *completion,
                         .cachedPromptTokens = smallInteger(*row, "cached_prompt_tokens"),
                         .reasoningTokens = smallInteger(*row, "reasoning_tokens"),
                         .costUSD = row->number("cost_usd"),
                         .callCount = smallInteger(*row, "call_count").value_or(1),
                         .servedByFallback = row->boolean("served_by_fallback").value_or(false),
                         .buildVersion = row->string("build_version")};
}

}  // namespace halvo
