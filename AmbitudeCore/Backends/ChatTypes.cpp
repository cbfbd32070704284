#include "AmbitudeCore/Backends/ChatTypes.h"

#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Foundation/Translation.h"

namespace halvo {
namespace {

template <class T>
std::optional<T> sum(const std::optional<T>& a, const std::optional<T>& b) {
  if (a && b) return *a + *b;
  return a ? a : b;
}

}  // namespace

JSONValue ToolCall::asLoggedJSON() const { return JSONObject{{"name", name}, {"arguments", arguments}}; }

std::optional<ToolCall> ToolCall::decodeLogged(const JSONValue& value) {
  const auto* object = value.objectValue();
  auto name = object ? object->string("name") : std::nullopt;
  if (!name || Text::isBlank(*name)) return std::nullopt;
  const auto* arguments = object->find("arguments");
  return ToolCall{.name = std::move(*name), .arguments = arguments ? *arguments : JSONValue(JSONObject{})};
}

ChatMessage ChatMessage::system(std::string content) { return {.role = ChatRole::system, .content = std::move(content)}; }

ChatMessage ChatMessage::user(std::string content) { return {.role = ChatRole::user, .content = std::move(content)}; }

ChatMessage ChatMessage::assistant(std::string content, std::optional<std::vector<ToolCall>> toolCalls, std::optional<std::string> thinking,
                                   std::optional<std::string> reasoningDetailsJSON) {
  return {.role = ChatRole::assistant,
          .content = std::move(content),
          .toolCalls = std::move(toolCalls),
          .thinking = std::move(thinking),
          .reasoningDetailsJSON = std::move(reasoningDetailsJSON)};
}

ChatMessage ChatMessage::toolResult(std::string name, std::string content) {
  return {.role = ChatRole::tool, .content = std::move(content), .toolName = std::move(name)};
}

std::optional<double> ChatUsage::cacheHitRate() const {
  if (!cachedPromptTokens || promptTokens < 1) return std::nullopt;
  return static_cast<double>(*cachedPromptTokens) / promptTokens;
}

std::optional<ChatUsage> ChatUsage::combining(const std::optional<ChatUsage>& a, const std::optional<ChatUsage>& b) {
  if (!a || !b) return a ? a : b;
  return ChatUsage{.promptTokens = a->promptTokens + b->promptTokens,
                   .completionTokens = a->completionTokens + b->completionTokens,
                   .cachedPromptTokens = sum(a->cachedPromptTokens, b->cachedPromptTokens),
                   .reasoningTokens = sum(a->reasoningTokens, b->reasoningTokens),
                   .costUSD = sum(a->costUSD, b->costUSD),
                   .callCount = a->callCount + b->callCount};
}

std::string disclosureLine(FallbackCause cause, std::string_view servedBy) {
  switch (cause) {
    case FallbackCause::unreachable:
      return tr("answered by {} — the usual model was unreachable", servedBy);
    case FallbackCause::paced:
      return tr("answered on this Mac — pacing your online coaching");
  }
  return {};
}

}  // namespace halvo
