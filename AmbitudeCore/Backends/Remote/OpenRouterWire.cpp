#include "AmbitudeCore/Backends/Remote/OpenRouterWire.h"

#include <algorithm>
#include <iterator>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "AmbitudeCore/Backends/ModelBackendError.h"
#include "AmbitudeCore/Backends/Routing/OpenRouterProviderRouting.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo::OpenRouterWire {
namespace {

using ChatCompletionsWire::Streaming;

bool isSchemaApproved(std::string_view slug) {
  const auto& approved = OpenRouterProviderRouting::schemaApproved;
  return std::find(approved.begin(), approved.end(), OpenRouterProviderRouting::providerOf(slug)) != approved.end();
}

JSONValue::Array list(const std::vector<std::string>& texts) { return {texts.begin(), texts.end()}; }

/// Those the service may choose from.
const std::vector<std::string>& acceptable(const OpenRouterConfig& config) {
  return config.acceptableProviders ? *config.acceptableProviders : config.providerOrder;
}

/// The system prefix marked as one to be cached, which these models only do when asked.
void markSystemPrefix(JSONValue::Array& messages) {
  for (auto& message : messages) {
    auto& members = *message.mutableObject();
    if (members.string("role") != "system") continue;
    const auto text = members.string("content").value_or("");
    members.set("content", JSONValue::Array{JSONObject{
                               {"type", "text"}, {"text", text}, {"cache_control", JSONObject{{"type", "ephemeral"}}}}});
  }
}

}  // namespace

std::vector<std::string> schemaApproved(const std::vector<std::string>& slugs) {
  std::vector<std::string> approved;
  std::copy_if(slugs.begin(), slugs.end(), std::back_inserter(approved), isSchemaApproved);
  return approved;
}

std::vector<std::string> pool(const OpenRouterConfig& config, Schema schema) {
  return schema == Schema::requested ? schemaApproved(config.providerOrder) : config.providerOrder;
}

void requireApprovedProvider(const OpenRouterConfig& config, Schema schema) {
  if (schema == Schema::none || !schemaApproved(acceptable(config)).empty() || !pool(config, schema).empty()) return;
  throw ModelBackendError::invalidResponse(fmt::format(
      "schema-bearing call has no approved provider: the configured pool [{}] contains none of {}. Refusing to send rather than routing a "
      "response_format request to a provider measured to stop reasoning under schema (#398). Unset AMBITCAP_MODEL_PROVIDER or pin an "
      "approved provider.",
      fmt::join(acceptable(config), ", "), fmt::join(OpenRouterProviderRouting::schemaApproved, ", ")));
}

std::optional<JSONObject> provider(const OpenRouterConfig& config, const std::optional<std::string>& pinned, Schema schema) {
  if (pinned)
    return JSONObject{{"only", JSONValue::Array{*pinned}}, {"allow_fallbacks", false}, {"require_parameters", true}};
  if (schema == Schema::none && config.providerOrder.empty() && !config.acceptableProviders) return std::nullopt;
  JSONObject object{{"allow_fallbacks", config.allowProviderFallbacks}, {"require_parameters", true}};
  if (const auto order = pool(config, schema); !order.empty()) object.set("order", list(order));
  if (schema == Schema::requested) {
    auto only = schemaApproved(acceptable(config));
    if (only.empty()) only = pool(config, schema);
    object.set("only", list(only));
  } else if (config.acceptableProviders && !config.acceptableProviders->empty()) {
    object.set("only", list(*config.acceptableProviders));
  }
  return object;
}

std::string body(const Request& request) {
  const auto& [config, pinned, messages, tools, options, streaming] = request;
  auto object = ChatCompletionsWire::commonMembers(
      {.model = config.model, .messages = messages, .tools = tools, .options = options, .streaming = streaming});
  auto encoded = ChatCompletionsWire::messages(messages, messageStyle);
  if (config.model.starts_with("anthropic/")) markSystemPrefix(encoded);
  object.set("messages", std::move(encoded));
  object.set("usage", JSONObject{{"include", true}});
  if (options.sessionID && !options.sessionID->empty()) object.set("session_id", *options.sessionID);
  if (auto choice = provider(config, pinned, schemaOf(options))) object.set("provider", std::move(*choice));
  if (options.think)
    object.set("reasoning", config.reasoningEffort ? JSONObject{{"effort", *config.reasoningEffort}} : JSONObject{{"enabled", true}});
  if (streaming == Streaming::yes) object.set("stream_options", JSONObject{{"include_usage", true}});
  return ChatCompletionsWire::encoded(std::move(object), options);
}

std::vector<std::pair<std::string, std::string>> headers(const OpenRouterConfig& config, const OpenRouterWireHooks& hooks,
                                                         Streaming streaming) {
  std::vector<std::pair<std::string, std::string>> all;
  if (!config.apiKey.empty()) all.emplace_back("Authorization", "Bearer " + config.apiKey);
  all.insert(all.end(), hooks.extraHeaders.begin(), hooks.extraHeaders.end());
  if (streaming == Streaming::yes) all.emplace_back("Accept", "text/event-stream");
  return all;
}

}  // namespace halvo::OpenRouterWire
