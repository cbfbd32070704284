#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "AmbitudeCore/Backends/ChatTypes.h"

/// The chat-completions dialect that the local server and remote services share: messages into JSON, replies out of it. Pure.
namespace halvo::ChatCompletionsWire {

/// Which key an assistant message's reasoning travels under.
struct MessageStyle {
  std::string_view thinkingKey = "reasoning_content";
  bool replayReasoningDetails = false;  ///< send `reasoningDetailsJSON` back under "reasoning_details"
};

/// The encoded messages, one for each given. Call ids are "call_<message>_<call>"; a tool message carries the id of the earliest unanswered
/// call of its name in the assistant message before it.
JSONValue::Array messages(const std::vector<ChatMessage>& messages, const MessageStyle& style = {});

/// {"type": "function", "function": {...}} for each tool.
JSONValue::Array tools(const std::vector<ToolSpec>& tools);

enum class Streaming { no, yes };
struct Body {
  std::string_view model = {};
  const std::vector<ChatMessage>& messages;
  const std::vector<ToolSpec>& tools;
  const ChatOptions& options;
  Streaming streaming = Streaming::no;
};
/// The members that every server's request has, but for its messages: model, stream, max_tokens, and, when they are set, seed, logprobs,
/// top_logprobs and tools.
JSONObject commonMembers(const Body& request);
/// A body as text: keys sorted, the response schema last when the options have one. Throws `JSONEncodingError`.
std::string encoded(JSONObject body, const ChatOptions& options);

/// An encoded body with a response schema spliced in as the text it is, so that its key order survives (a model writes keys in the schema's
/// order). Throws `JSONEncodingError` when the schema is no JSON object.
std::string withResponseSchema(std::string encodedBody, std::string_view schemaJSON);

/// The words of one server's errors.
struct ErrorWords {
  std::string_view notAnObject = {};
  std::string_view errorPrefix = {};  ///< in front of the server's own message
  std::string_view noMessage = {};
};

/// The reply in the body of a plain answer. Throws `ModelBackendError` of kind `invalidResponse` in the words given.
ChatResponse reply(std::string_view body, const ErrorWords& words);

/// The message of a payload's "error" object (its "message", else its JSON text); absent when the payload has no error.
std::optional<std::string> errorMessage(const JSONValue& payload);

/// A call's arguments as a model wrote them: parsed, or an empty object when they do not parse (a call cut off by the token cap).
JSONValue parsedArguments(std::string_view text);

std::optional<ChatUsage> usage(const JSONValue& payload);
/// Provider, generation, model and finish reason; absent when the payload names none of them.
std::optional<ChatProvenance> provenance(const JSONValue& payload);
/// The entries of a choice's "logprobs": {"content": [...]}.
std::vector<TokenLogprob> logprobs(const JSONValue& choice);

}  // namespace halvo::ChatCompletionsWire
