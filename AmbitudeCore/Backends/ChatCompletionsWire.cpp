#include "AmbitudeCore/Backends/ChatCompletionsWire.h"

#include <algorithm>
#include <limits>
#include <map>

#include <fmt/format.h>

#include "AmbitudeCore/Backends/ModelBackendError.h"

namespace halvo::ChatCompletionsWire {
namespace {

std::optional<int> count(const JSONValue* object, std::string_view key) {
  const auto* members = object ? object->objectValue() : nullptr;
  const auto number = members ? members->integer(key) : std::nullopt;
  if (!number || *number < 0 || *number > std::numeric_limits<int>::max()) return std::nullopt;
  return static_cast<int>(*number);
}

std::optional<std::string> text(const JSONValue* object, std::string_view key) {
  const auto* members = object ? object->objectValue() : nullptr;
  return members ? members->string(key) : std::nullopt;
}

/// The ids of one assistant message's calls that no tool message has answered yet.
class Unanswered {
 public:
  void begin() { pending_.clear(); }
  void add(const std::string& name, std::string id) { pending_.emplace_back(name, std::move(id)); }
  std::optional<std::string> take(std::string_view name) {
    const auto found = std::find_if(pending_.begin(), pending_.end(), [&](const auto& call) { return call.first == name; });
    if (found == pending_.end()) return std::nullopt;
    auto id = std::move(found->second);
    pending_.erase(found);
    return id;
  }

 private:
  std::vector<std::pair<std::string, std::string>> pending_;  // name, id
};

JSONObject assistant(const ChatMessage& message, std::size_t index, const MessageStyle& style, Unanswered& unanswered) {
  JSONObject encoded{{"role", "assistant"}, {"content", message.content}};
  if (message.thinking && !message.thinking->empty()) encoded.set(std::string(style.thinkingKey), *message.thinking);
  if (style.replayReasoningDetails && message.reasoningDetailsJSON)
    if (auto details = JSONValue::parse(*message.reasoningDetailsJSON)) encoded.set("reasoning_details", std::move(*details));
  unanswered.begin();
  if (!message.toolCalls || message.toolCalls->empty()) return encoded;
  JSONValue::Array calls;
  for (std::size_t k = 0; k < message.toolCalls->size(); ++k) {
    const auto& call = (*message.toolCalls)[k];
    auto id = fmt::format("call_{}_{}", index, k);
    calls.push_back(
        JSONObject{{"id", id}, {"type", "function"}, {"function", JSONObject{{"name", call.name}, {"arguments", call.arguments.dump()}}}});
    unanswered.add(call.name, std::move(id));
  }
  encoded.set("tool_calls", std::move(calls));
  return encoded;
}

JSONObject toolResult(const ChatMessage& message, std::size_t index, Unanswered& unanswered) {
  const auto name = message.toolName.value_or("unknown");
  auto id = unanswered.take(name).value_or(fmt::format("call_unmatched_{}_{}", name, index));
  return {{"role", "tool"}, {"content", message.content}, {"tool_call_id", std::move(id)}, {"name", name}};
}

std::vector<ToolCall> toolCalls(const JSONValue& message) {
  std::vector<ToolCall> calls;
  const auto* list = message.find("tool_calls");
  if (!list || !list->arrayValue()) return calls;
  for (const auto& entry : *list->arrayValue()) {
    const auto* function = entry.find("function");
    auto name = text(function, "name").value_or("");
    if (name.empty()) continue;
    const auto* arguments = function->find("arguments");
    // Some servers send the arguments as an object where the dialect has text.
    if (arguments && arguments->objectValue())
      calls.push_back({.name = std::move(name), .arguments = *arguments});
    else
      calls.push_back({.name = std::move(name), .arguments = parsedArguments(text(function, "arguments").value_or(""))});
  }
  return calls;
}

}  // namespace

JSONValue::Array messages(const std::vector<ChatMessage>& messages, const MessageStyle& style) {
  JSONValue::Array encoded;
  encoded.reserve(messages.size());
  Unanswered unanswered;
  for (std::size_t i = 0; i < messages.size(); ++i) {
    const auto& message = messages[i];
    switch (message.role) {
      case ChatRole::system:
      case ChatRole::user:
        encoded.push_back(JSONObject{{"role", rawValue(message.role)}, {"content", message.content}});
        break;
      case ChatRole::assistant:
        encoded.push_back(assistant(message, i, style, unanswered));
        break;
      case ChatRole::tool:
        encoded.push_back(toolResult(message, i, unanswered));
        break;
    }
  }
  return encoded;
}

JSONValue::Array tools(const std::vector<ToolSpec>& tools) {
  JSONValue::Array encoded;
  for (const auto& tool : tools)
    encoded.push_back(
        JSONObject{{"type", "function"},
                   {"function", JSONObject{{"name", tool.name}, {"description", tool.description}, {"parameters", tool.parameters}}}});
  return encoded;
}

JSONObject commonMembers(const Body& request) {
  const auto& options = request.options;
  JSONObject object{{"model", request.model}, {"stream", request.streaming == Streaming::yes}, {"max_tokens", options.maxTokens}};
  if (options.seed) object.set("seed", *options.seed);
  if (options.logprobs) {
    object.set("logprobs", true);
    if (options.topLogprobs) object.set("top_logprobs", *options.topLogprobs);
  }
  if (!request.tools.empty()) object.set("tools", tools(request.tools));
  return object;
}

std::string encoded(JSONObject body, const ChatOptions& options) {
  auto text = JSONValue(std::move(body)).dump();
  return options.responseSchemaJSON ? withResponseSchema(std::move(text), *options.responseSchemaJSON) : text;
}

std::string withResponseSchema(std::string encodedBody, std::string_view schemaJSON) {
  const auto parsed = JSONValue::parse(schemaJSON);
  if (!parsed || !parsed->objectValue()) throw JSONEncodingError("the response schema is not a JSON object");
  if (!encodedBody.ends_with('}')) throw JSONEncodingError("the body is not a JSON object");
  encodedBody.pop_back();
  if (encodedBody != "{") encodedBody += ',';
  encodedBody += R"("response_format":{"type":"json_schema","json_schema":{"name":"response","strict":true,"schema":)";
  encodedBody += schemaJSON;
  encodedBody += "}}}";
  return encodedBody;
}

ChatResponse reply(std::string_view body, const ErrorWords& words) {
  const auto payload = JSONValue::parse(body);
  if (!payload || !payload->objectValue()) throw ModelBackendError::invalidResponse(std::string(words.notAnObject));
  if (const auto message = errorMessage(*payload)) throw ModelBackendError::invalidResponse(std::string(words.errorPrefix) + *message);
  const auto* choice = payload->at({"choices", "0"});
  const auto* message = choice ? choice->find("message") : nullptr;
  if (!message || !message->objectValue()) throw ModelBackendError::invalidResponse(std::string(words.noMessage));

  ChatResponse response{.text = text(message, "content").value_or(""),
                        .toolCalls = toolCalls(*message),
                        .thinking = text(message, "reasoning").value_or(text(message, "reasoning_content").value_or("")),
                        .truncated = text(choice, "finish_reason") == "length",
                        .usage = usage(*payload),
                        .provenance = provenance(*payload),
                        .logprobs = logprobs(*choice)};
  const auto* details = message->find("reasoning_details");
  if (!details) details = payload->find("reasoning_details");
  if (details && details->arrayValue()) response.reasoningDetailsJSON = details->dump();
  return response;
}

std::optional<std::string> errorMessage(const JSONValue& payload) {
  const auto* error = payload.find("error");
  if (!error || error->isNull()) return std::nullopt;
  if (const auto* plain = error->stringValue()) return *plain;
  if (auto message = text(error, "message")) return message;
  return error->dump();
}

JSONValue parsedArguments(std::string_view text) { return JSONValue::parse(text).value_or(JSONObject{}); }

std::optional<ChatUsage> usage(const JSONValue& payload) {
  const auto* block = payload.find("usage");
  const auto prompt = count(block, "prompt_tokens"), completion = count(block, "completion_tokens");
  if (!prompt && !completion) return std::nullopt;
  return ChatUsage{.promptTokens = prompt.value_or(0),
                   .completionTokens = completion.value_or(0),
                   .cachedPromptTokens = count(block->find("prompt_tokens_details"), "cached_tokens"),
                   .reasoningTokens = count(block->find("completion_tokens_details"), "reasoning_tokens"),
                   .costUSD = block->objectValue()->number("cost"),
                   .callCount = 1};
}

std::optional<ChatProvenance> provenance(const JSONValue& payload) {
  ChatProvenance found{.provider = text(&payload, "provider"),
                       .generationID = text(&payload, "id"),
                       .servedModel = text(&payload, "model"),
                       .finishReason = text(payload.at({"choices", "0"}), "finish_reason")};
  return found.isEmpty() ? std::nullopt : std::optional(std::move(found));
}

std::vector<TokenLogprob> logprobs(const JSONValue& choice) {
  std::vector<TokenLogprob> entries;
  const auto* list = choice.at({"logprobs", "content"});
  if (!list || !list->arrayValue()) return entries;
  for (const auto& entry : *list->arrayValue()) {
    const auto* members = entry.objectValue();
    const auto logprob = members ? members->number("logprob") : std::nullopt;
    auto token = text(&entry, "token");
    if (!token || !logprob) continue;
    TokenLogprob read{.token = std::move(*token), .logprob = *logprob};
    const auto* top = entry.find("top_logprobs");
    if (top && top->arrayValue())
      for (const auto& other : *top->arrayValue())
        if (auto name = text(&other, "token"))
          read.topAlternatives.push_back({.token = std::move(*name), .logprob = other.objectValue()->number("logprob").value_or(0)});
    entries.push_back(std::move(read));
  }
  return entries;
}

}  // namespace halvo::ChatCompletionsWire
