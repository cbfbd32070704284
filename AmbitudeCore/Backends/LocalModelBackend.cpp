#include "AmbitudeCore/Backends/LocalModelBackend.h"

#include <algorithm>

#include <fmt/format.h>

#include "AmbitudeCore/Backends/ChatCompletionsWire.h"
#include "AmbitudeCore/Backends/ChatExchange.h"
#include "AmbitudeCore/Backends/LocalInferenceWire.h"
#include "AmbitudeCore/Backends/ModelBackendError.h"
#include "AmbitudeCore/Backends/RequestConformance.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Net/URLParts.h"

namespace halvo {
namespace {

using ChatExchange::encodedOrThrow, ChatExchange::jsonPost;

constexpr double sideCallTimeoutSec = 10;  // "/props", "/apply-template", "/tokenize": all answered without the model
constexpr double loadingWaitSec = 1;

bool isLoading(const HTTPResponse& response) {
  return response.status == 503 && Text::lower(response.body).find("loading") != std::string::npos;
}

}  // namespace

std::string LocalModelConfig::chatEndpoint(std::string_view base) { return LocalInferenceWire::chatCompletionsURL(base); }

struct LocalModelBackend::Call {
  const std::vector<ChatMessage>& messages;
  const std::vector<ToolSpec>& tools;
  const ChatOptions& options;
  const StreamCallback* onDelta;  // null: a plain call
  const std::stop_token& stop;
  std::int64_t deadlineMs;

  LocalInferenceWire::Body body(std::string_view model, const std::vector<ChatMessage>& sent) const {
    return {.model = model,
            .messages = sent,
            .tools = tools,
            .options = options,
            .streaming = onDelta ? LocalInferenceWire::Streaming::yes : LocalInferenceWire::Streaming::no};
  }
};

LocalModelBackend::LocalModelBackend(LocalModelConfig config, HTTPTransport& transport, Surroundings surroundings)
    : config_(std::move(config)), transport_(transport), surroundings_(std::move(surroundings)) {}

ChatResponse LocalModelBackend::chat(const std::vector<ChatMessage>& messages, const std::vector<ToolSpec>& tools,
                                     const ChatOptions& options, const std::stop_token& stop) {
  const auto deadlineMs = surroundings_.clock.nowMs() + static_cast<std::int64_t>(config_.timeoutSec * 1000);
  return run({messages, tools, options, nullptr, stop, deadlineMs});
}

ChatResponse LocalModelBackend::chatStream(const std::vector<ChatMessage>& messages, const std::vector<ToolSpec>& tools,
                                           const ChatOptions& options, const StreamCallback& onDelta, const std::stop_token& stop) {
  const auto deadlineMs = surroundings_.clock.nowMs() + static_cast<std::int64_t>(config_.timeoutSec * 1000);
  return run({messages, tools, options, &onDelta, stop, deadlineMs});
}

ChatResponse LocalModelBackend::run(const Call& call) {
  throwIfStopped(call.stop);
  if (RequestConformance::isEnabled(surroundings_.environment)) RequestConformance::validate(call.messages, call.tools);

  const auto context = contextTokens(call.stop);
  const auto maxTokens = call.options.maxTokens;
  auto messages = call.messages;
  if (LocalContextFit::mayNeedCounting(messages, context, maxTokens)) {
    const auto reserve = LocalContextFit::outputReserve(context, maxTokens);
    const auto count = countedTokens(call);
    if (count && *count > context - reserve) {
      const LocalContextFit::Overflow overflow{.promptTokens = *count, .contextTokens = context};
      if (auto trim = LocalContextFit::trimmed(messages, overflow, reserve)) {
        logTrim(overflow, reserve, trim->droppedMessages, "before sending");
        messages = std::move(trim->messages);
      }
    }
  }

  for (int attempts = 1;; ++attempts) {
    try {
      return send(call, messages);
    } catch (const ModelBackendError& error) {
      const auto overflow = LocalContextFit::overflow(error);
      if (!overflow || attempts >= LocalContextFit::maxAttempts) throw;
      const auto reserve = std::max<std::int64_t>(LocalContextFit::outputReserve(overflow->contextTokens, maxTokens), 256);
      auto trim = LocalContextFit::trimmed(messages, *overflow, reserve);
      if (!trim) throw;
      logTrim(*overflow, reserve, trim->droppedMessages, fmt::format("and sent again (attempt {})", attempts + 1));
      messages = std::move(trim->messages);
    }
  }
}

ChatResponse LocalModelBackend::send(const Call& call, const std::vector<ChatMessage>& messages) {
  const bool schema = call.options.responseSchemaJSON.has_value();
  RequestConformance::validateResponseFormat(
      schema ? RequestConformance::SchemaRequest::requested : RequestConformance::SchemaRequest::none,
      RequestConformance::SchemaSupport::enforced);
  if (RequestConformance::isEnabled(surroundings_.environment))
    RequestConformance::validateEncodedOpenAIShape(ChatCompletionsWire::messages(messages));

  const auto request = jsonPost(
      config_.endpoint, encodedOrThrow([&] { return LocalInferenceWire::body(call.body(config_.model, messages)); }), config_.timeoutSec);
  ChatExchange::dump(request, surroundings_);
  return exchange(call, request);
}

ChatResponse LocalModelBackend::exchange(const Call& call, const HTTPRequest& request) {
  const ChatExchange::Dialect dialect{.words = LocalInferenceWire::errorWords};
  for (;;) {
    auto outcome = ChatExchange::run(
        request, {.transport = transport_, .dialect = dialect, .onDelta = call.onDelta, .clock = surroundings_.clock}, call.stop);
    if (auto* response = std::get_if<ChatResponse>(&outcome)) {
      response->servedBy = std::string(displayName);
      return std::move(*response);
    }
    auto& answer = std::get<HTTPResponse>(outcome);
    const auto nowMs = surroundings_.clock.nowMs();
    if (!isLoading(answer) || nowMs + static_cast<std::int64_t>(loadingWaitSec * 1000) >= call.deadlineMs)
      throw ModelBackendError::httpError(answer.status, std::move(answer.body));
    surroundings_.clock.wait(loadingWaitSec, call.stop);
    throwIfStopped(call.stop);
  }
}

std::int64_t LocalModelBackend::contextTokens(const std::stop_token& stop) {
  if (const auto cached = contextCache_.get()) return *cached;
  const auto props = ask(
      {.method = "GET", .url = joinedURL(LocalInferenceWire::baseURL(config_.endpoint), "props"), .timeoutSec = sideCallTimeoutSec}, stop);
  const auto* settings = props ? props->find("default_generation_settings") : nullptr;
  const auto* members = settings ? settings->objectValue() : nullptr;
  const auto size = members ? members->integer("n_ctx") : std::nullopt;
  if (!size || *size < 1) return assumedContextTokens;
  contextCache_.set(*size);
  return *size;
}

std::optional<std::int64_t> LocalModelBackend::countedTokens(const Call& call) {
  const auto base = LocalInferenceWire::baseURL(config_.endpoint);
  const auto rendered =
      ask(jsonPost(joinedURL(base, "apply-template"),
                   encodedOrThrow([&] { return LocalInferenceWire::templateBody(call.body(config_.model, call.messages)); }),
                   sideCallTimeoutSec),
          call.stop);
  const auto* prompt = rendered ? rendered->find("prompt") : nullptr;
  if (!prompt || !prompt->stringValue()) return std::nullopt;
  const JSONValue question = JSONObject{{"content", *prompt}, {"add_special", true}, {"parse_special", true}};
  const auto counted = ask(jsonPost(joinedURL(base, "tokenize"), question.dump(), sideCallTimeoutSec), call.stop);
  const auto* tokens = counted ? counted->find("tokens") : nullptr;
  if (!tokens || !tokens->arrayValue()) return std::nullopt;
  return static_cast<std::int64_t>(tokens->arrayValue()->size());
}

/// Absent for any failure but a stop: what these calls tell only spares the server a refusal.
std::optional<JSONValue> LocalModelBackend::ask(const HTTPRequest& request, const std::stop_token& stop) {
  try {
    const auto answer = transport_.send(request, stop);
    return answer.isSuccess() ? JSONValue::parse(answer.body) : std::nullopt;
  } catch (const TransportError&) {
    return std::nullopt;
  }
}

void LocalModelBackend::logTrim(const LocalContextFit::Overflow& overflow, std::int64_t reserve, std::size_t dropped,
                                const std::string& ending) const {
  if (!surroundings_.log) return;
  surroundings_.log(
      fmt::format("local model: the conversation is {} tokens and the context is {} (keeping {} for the reply) -- dropped the {} oldest "
                  "message(s) {}",
                  overflow.promptTokens, overflow.contextTokens, reserve, dropped, ending));
}

}  // namespace halvo
