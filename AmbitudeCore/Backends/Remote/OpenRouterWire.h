#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "AmbitudeCore/Backends/ChatCompletionsWire.h"
#include "AmbitudeCore/Backends/Remote/OpenRouterConfig.h"
#include "AmbitudeCore/Backends/Remote/OpenRouterWireHooks.h"

/// The remote routing service's request bodies and headers. Pure.
namespace halvo::OpenRouterWire {

inline constexpr ChatCompletionsWire::ErrorWords errorWords{.notAnObject = "response was not a JSON object",
                                                            .errorPrefix = "OpenRouter error: ",
                                                            .noMessage = "response had no choices"};

/// How an assistant's reasoning goes back to the service.
inline constexpr ChatCompletionsWire::MessageStyle messageStyle{.thinkingKey = "reasoning", .replayReasoningDetails = true};

enum class Schema { none, requested };
inline Schema schemaOf(const ChatOptions& options) { return options.responseSchemaJSON ? Schema::requested : Schema::none; }

/// The slugs whose provider may be sent a response schema, in the order given.
std::vector<std::string> schemaApproved(const std::vector<std::string>& slugs);
/// The slugs a call is pinned within: the order, or what of it may be sent a schema.
std::vector<std::string> pool(const OpenRouterConfig& config, Schema schema);
/// Throws `ModelBackendError` when a schema is requested and no configured provider may be sent one.
void requireApprovedProvider(const OpenRouterConfig& config, Schema schema);

/// The body's "provider"; absent when the service may choose freely.
std::optional<JSONObject> provider(const OpenRouterConfig& config, const std::optional<std::string>& pinned, Schema schema);

struct Request {
  const OpenRouterConfig& config;
  const std::optional<std::string>& pinned;     ///< the one provider that may answer
  const std::vector<ChatMessage>& messages;     ///< redacted by now
  const std::vector<ToolSpec>& tools;
  const ChatOptions& options;
  ChatCompletionsWire::Streaming streaming = ChatCompletionsWire::Streaming::no;
};
/// The encoded body, keys sorted, the response schema last. Throws `JSONEncodingError`.
std::string body(const Request& request);

/// Everything but the content type; the key's header first.
std::vector<std::pair<std::string, std::string>> headers(const OpenRouterConfig& config, const OpenRouterWireHooks& hooks,
                                                         ChatCompletionsWire::Streaming streaming);

}  // namespace halvo::OpenRouterWire
