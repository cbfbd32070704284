#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "CaptureShared/Foundation/JSONValue.h"
#include "CaptureShared/Foundation/RawValue.h"

namespace halvo {

enum class ChatRole { system, user, assistant, tool };
template <>
struct RawValues<ChatRole> {
  static constexpr std::array table{std::pair{ChatRole::system, "system"}, std::pair{ChatRole::user, "user"},
                                    std::pair{ChatRole::assistant, "assistant"}, std::pair{ChatRole::tool, "tool"}};
};

/// A tool offered to the model. `parameters` is a JSON Schema object with "type": "object" and "properties".
struct ToolSpec {
  std::string name = {};
  std::string description = {};
  JSONValue parameters = {};
  bool operator==(const ToolSpec&) const = default;
};

/// A tool the model asked for. A call does nothing by itself.
struct ToolCall {
  std::string name = {};
  JSONValue arguments = JSONObject{};
  /// {"name": ..., "arguments": ...}, as the event log keeps it.
  JSONValue asLoggedJSON() const;
  /// The inverse; absent unless `value` is an object with a name that is not blank. Missing arguments become an empty object.
  static std::optional<ToolCall> decodeLogged(const JSONValue& value);
  bool operator==(const ToolCall&) const = default;
};

/// One message of a conversation.
struct ChatMessage {
  ChatRole role = ChatRole::user;
  std::string content = {};
  std::optional<std::vector<ToolCall>> toolCalls = {};      ///< only on an assistant message that called tools
  std::optional<std::string> toolName = {};                 ///< only on a tool message: whose result it is
  std::optional<std::string> thinking = {};                 ///< the reasoning that went with an assistant message
  std::optional<std::string> reasoningDetailsJSON = {};     ///< the remote service's array, verbatim, to be replayed

  static ChatMessage system(std::string content);
  static ChatMessage user(std::string content);
  static ChatMessage assistant(std::string content, std::optional<std::vector<ToolCall>> toolCalls = {},
                               std::optional<std::string> thinking = {}, std::optional<std::string> reasoningDetailsJSON = {});
  static ChatMessage toolResult(std::string name, std::string content);
  bool operator==(const ChatMessage&) const = default;
};

/// `reply`: a person is waiting for this answer. `background`: nobody is.
enum class ChatTurn { reply, background };
template <>
struct RawValues<ChatTurn> {
  static constexpr std::array table{std::pair{ChatTurn::reply, "reply"}, std::pair{ChatTurn::background, "background"}};
};

struct ChatOptions {
  int maxTokens = 4096;                                ///< generated tokens, thinking included
  bool think = true;                                   ///< may the model reason before it answers
  bool logprobs = false;                               ///< ask for per-token log-probabilities
  std::optional<int> topLogprobs = {};                 ///< alternatives per token
  std::optional<std::int64_t> seed = {};
  std::optional<std::string> sessionID = {};           ///< the caller's stable conversation identity
  std::optional<std::string> responseSchemaJSON = {};  ///< an encoded JSON Schema that the reply must meet
  ChatTurn turn = ChatTurn::background;
  bool operator==(const ChatOptions&) const = default;
};

/// A piece of a reply as it arrives. The final `ChatResponse` is authoritative over all of them.
struct ModelStreamDelta {
  std::string text = {};
  std::string thinking = {};
  bool resetsPrevious = false;  ///< discard the reply text shown so far first
  bool resetsThinking = false;  ///< discard the thinking shown so far first
  bool operator==(const ModelStreamDelta&) const = default;
};

struct ChatUsage {
  int promptTokens = 0, completionTokens = 0;
  std::optional<int> cachedPromptTokens = {}, reasoningTokens = {};
  std::optional<double> costUSD = {};
  int callCount = 1;  ///< model calls folded into this value

  /// Cached over prompt; absent without a cached figure or below one prompt token.
  std::optional<double> cacheHitRate() const;
  /// Adds; an optional field is absent only when it is absent on both sides.
  static std::optional<ChatUsage> combining(const std::optional<ChatUsage>& a, const std::optional<ChatUsage>& b);
  bool operator==(const ChatUsage&) const = default;
};

/// Where an answer came from. A backend leaves it absent rather than empty.
struct ChatProvenance {
  std::optional<std::string> provider = {}, generationID = {}, servedModel = {}, finishReason = {};
  bool isEmpty() const { return !provider && !generationID && !servedModel && !finishReason; }
  bool operator==(const ChatProvenance&) const = default;
};

struct TokenLogprob {
  struct Alternative {
    std::string token = {};
    double logprob = 0;
    bool operator==(const Alternative&) const = default;
  };
  std::string token = {};
  double logprob = 0;
  std::vector<Alternative> topAlternatives = {};
  bool operator==(const TokenLogprob&) const = default;
};

/// Why an answer came from the fallback.
enum class FallbackCause { unreachable, paced };
template <>
struct RawValues<FallbackCause> {
  static constexpr std::array table{std::pair{FallbackCause::unreachable, "unreachable"}, std::pair{FallbackCause::paced, "paced"}};
};
/// The line shown beside such an answer.
std::string disclosureLine(FallbackCause cause, std::string_view servedBy);

struct ChatResponse {
  std::string text = {};
  std::vector<ToolCall> toolCalls = {};
  std::string thinking = {};  ///< empty when there was none
  bool truncated = false;     ///< stopped at the token cap
  std::optional<ChatUsage> usage = {};
  std::optional<std::string> servedBy = {};  ///< display name of the backend that answered
  bool servedByFallback = false;
  std::optional<FallbackCause> fallbackCause = {};
  std::optional<ChatProvenance> provenance = {};
  std::vector<TokenLogprob> logprobs = {};  ///< empty when not asked for
  std::optional<std::string> reasoningDetailsJSON = {};
  bool operator==(const ChatResponse&) const = default;
};

}  // namespace halvo
