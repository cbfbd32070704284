#include "AmbitudeCore/Backends/LocalModelBackend.h"

#include <algorithm>

#include <fmt/format.h>

#include "AmbitudeCore/Backends/ChatCompletionsWire.h"
#include "AmbitudeCore/Backends/LocalInferenceWire.h"
#include "AmbitudeCore/Backends/ModelBackendError.h"
#include "AmbitudeCore/Backends/RequestConformance.h"
#include "AmbitudeCore/Backends/RequestDump.h"
#include "AmbitudeCore/Backends/StreamAccumulator.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Net/EventStreamReader.h"
#include "CaptureShared/Net/TransportText.h"
#include "CaptureShared/Net/URLParts.h"

namespace halvo {
namespace {

constexpr double sideCallTimeoutSec = 10;  // "/props", "/apply-template", "/tokenize": all answered without the model
constexpr double loadingWaitSec = 1;

bool isLoading(const HTTPResponse& response) {
  return response.status == 503 && Text::lower(response.body).find("loading") != std::string::npos;
}

template <class Encode>
std::string encodedOrThrow(Encode&& encode) {
  try {
    return encode();
  } catch (const JSONEncodingError& error) {
    throw ModelBackendError::invalidResponse(fmt::format("failed to encode request body: {}", error.what()));
  }
}

HTTPRequest jsonPost(std::string url, std::string body, double timeoutSec) {
  return {.method = "POST",
          .url = std::move(url),
          .headers = {{"Content-Type", "application/json"}},
          .body = std::move(body),
          .timeoutSec = timeoutSec};
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
  if (surroundings_.dumpDirectory && RequestDump::isEnabled(surroundings_.environment))
    RequestDump::write({.method = request.method,
                        .endpoint = request.url,
                        .headers = request.headers,
                        .body = request.body,
                        .nowMs = surroundings_.clock.nowMs()},
                       *surroundings_.dumpDirectory);
  return exchange(call, request);
}

ChatResponse LocalModelBackend::exchange(const Call& call, const HTTPRequest& request) {
  for (;;) {
    StreamAccumulator accumulator;
    EventStreamReader events;
    const auto onData = [&](std::string_view text) {
      const auto payload = JSONValue::parse(text);
      if (!payload) return;
      if (const auto message = ChatCompletionsWire::errorMessage(*payload))
        throw ModelBackendError::invalidResponse(std::string(LocalInferenceWire::errorWords.errorPrefix) + *message);
      if (const auto delta = accumulator.feed(*payload)) (*call.onDelta)(*delta);
    };

    HTTPResponse answer;
    try {
      if (call.onDelta) {
        answer = transport_.stream(
            request, [&](std::string_view bytes) { events.feed(bytes, onData); }, call.stop);
        events.finish(onData);
      } else {
        answer = transport_.send(request, call.stop);
      }
    } catch (const TransportError& error) {
      throw ModelBackendError::transportError(error.what());
    }

    if (answer.isSuccess()) {
      auto response = call.onDelta ? accumulator.response() : ChatCompletionsWire::reply(answer.body, LocalInferenceWire::errorWords);
      // A stream that just ends has been cut off on its way: what came so far is no reply.
      if (call.onDelta && !events.isDone() && !accumulator.isFinished())
        throw ModelBackendError::transportError(TransportText::connectionLost("the stream ended before its last event"));
      if (call.onDelta && !accumulator.hasChoices())
        throw ModelBackendError::invalidResponse("llama-server response had no choices[0].message");
      response.servedBy = std::string(displayName);
      return response;
    }
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
