#include "AmbitudeCore/Backends/Remote/OpenRouterBackend.h"

#include <utility>

#include <fmt/format.h>

#include "AmbitudeCore/Backends/ChatExchange.h"
#include "AmbitudeCore/Backends/Remote/OpenRouterWire.h"
#include "AmbitudeCore/Backends/Remote/OutboundRedaction.h"
#include "AmbitudeCore/Backends/RequestConformance.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Privacy/SecretRedaction.h"

namespace halvo {
namespace {

constexpr std::size_t shortestRealKey = 16;  // below that a key may well be a word of the body itself

/// What a streamed call has shown, so that a second attempt replaces it.
class Shown {
 public:
  explicit Shown(const StreamCallback* reader) : reader_(reader) {}
  void beginAttempt() {
    resetText_ = text_ || thinking_;
    resetThinking_ = thinking_;
  }
  void pass(ModelStreamDelta delta) {
    delta.resetsPrevious |= std::exchange(resetText_, false);
    delta.resetsThinking |= std::exchange(resetThinking_, false);
    text_ |= !delta.text.empty();
    thinking_ |= !delta.thinking.empty();
    (*reader_)(delta);
  }

 private:
  const StreamCallback* reader_;
  bool text_ = false, thinking_ = false;
  bool resetText_ = false, resetThinking_ = false;
};

std::optional<std::string> serviceCode(const std::string& body) {
  const auto payload = JSONValue::parse(body);
  if (!payload) return std::nullopt;
  const auto* code = payload->at({"error", "code"});
  if (!code) code = payload->find("code");
  if (!code || !code->stringValue()) return std::nullopt;
  return *code->stringValue();
}

}  // namespace

struct OpenRouterBackend::Call {
  std::vector<ChatMessage> messages;  // redacted
  const std::vector<ToolSpec>& tools;
  const ChatOptions& options;
  const std::stop_token& stop;
  Shown* shown;  // null: a plain call

  ChatCompletionsWire::Streaming streaming() const {
    return shown ? ChatCompletionsWire::Streaming::yes : ChatCompletionsWire::Streaming::no;
  }
};

OpenRouterBackend::OpenRouterBackend(OpenRouterConfig config, HTTPTransport& transport, std::shared_ptr<StickyProviderSelector> selector,
                                     Surroundings surroundings, OpenRouterWireHooks hooks)
    : config_(std::move(config)),
      transport_(transport),
      selector_(std::move(selector)),
      surroundings_(std::move(surroundings)),
      hooks_(std::move(hooks)) {}

ChatResponse OpenRouterBackend::chat(const std::vector<ChatMessage>& messages, const std::vector<ToolSpec>& tools,
                                     const ChatOptions& options, const std::stop_token& stop) {
  return run({OutboundRedaction::redacted(messages), tools, options, stop, nullptr});
}

ChatResponse OpenRouterBackend::chatStream(const std::vector<ChatMessage>& messages, const std::vector<ToolSpec>& tools,
                                           const ChatOptions& options, const StreamCallback& onDelta, const std::stop_token& stop) {
  Shown shown(&onDelta);
  return run({OutboundRedaction::redacted(messages), tools, options, stop, &shown});
}

ChatResponse OpenRouterBackend::run(const Call& call) {
  throwIfStopped(call.stop);
  const auto schema = OpenRouterWire::schemaOf(call.options);
  OpenRouterWire::requireApprovedProvider(config_, schema);
  if (RequestConformance::isEnabled(surroundings_.environment)) {
    RequestConformance::validate(call.messages, call.tools);
    RequestConformance::validateEncodedOpenAIShape(ChatCompletionsWire::messages(call.messages, OpenRouterWire::messageStyle));
  }
  const auto pool = OpenRouterWire::pool(config_, schema);
  const auto pinned = selector_ ? selector_->choose(pool) : std::nullopt;
  if (!pinned) return send(call, pinned);

  log(fmt::format("openrouter provider: sending to {} (pool {})", *pinned, StickyProviderSelector::poolKey(pool)));
  std::optional<ProviderAttributedFailure> failure;
  try {
    return send(call, pinned);
  } catch (const ProviderAttributedFailure& error) {
    failure = error;
  }
  return sendElsewhere(call, pool, *failure);
}

ChatResponse OpenRouterBackend::sendElsewhere(const Call& call, const std::vector<std::string>& pool,
                                              const ProviderAttributedFailure& failure) {
  const auto& old = failure.provider();
  const auto other = selector_->moveAfterFailure(pool, old);
  if (!other) {
    log(fmt::format("openrouter provider: {} failed with {} and there is no other provider in the pool to move to -- surfacing the error",
                    old, failure.reason()));
    throw failure.underlying();
  }
  throwIfStopped(call.stop);
  log(fmt::format("OPENROUTER PROVIDER SWITCH: {} failed with {} -- retrying this call on {} and staying there", old, failure.reason(),
                  *other));
  const auto giveUp = [&](const std::string& next) {
    log(fmt::format("OPENROUTER PROVIDER SWITCH: {} -> {} on the retry); not retrying again -- this call fails, the next one starts on {}",
                    old, *other, next));
  };
  try {
    return send(call, other);
  } catch (const ProviderAttributedFailure& second) {
    giveUp(selector_->moveAfterFailure(pool, *other).value_or(*other));
    throw second.underlying();
  } catch (const ModelBackendError&) {
    giveUp(*other);  // not the provider's doing: the pool stays
    throw;
  }
}

ChatResponse OpenRouterBackend::send(const Call& call, const std::optional<std::string>& pinned) {
  const auto request = this->request(call, pinned);
  ChatExchange::dump(request, surroundings_);
  const ChatExchange::Dialect dialect{.words = OpenRouterWire::errorWords,
                                      .onErrorPayload = [&](const JSONValue& payload) { throwForPayload(payload, pinned); },
                                      .payloadTimeoutSec = config_.timeoutSec};
  if (call.shown) call.shown->beginAttempt();
  const StreamCallback onDelta = [&](const ModelStreamDelta& delta) { call.shown->pass(delta); };
  const ChatExchange::Talk talk{
      .transport = transport_, .dialect = dialect, .onDelta = call.shown ? &onDelta : nullptr, .clock = surroundings_.clock};
  std::variant<ChatResponse, HTTPResponse> outcome;
  try {
    outcome = ChatExchange::run(request, talk, call.stop);
  } catch (const ModelBackendError& error) {
    throw error.withText(withoutSecrets(error.text()));
  }
  if (const auto* answer = std::get_if<HTTPResponse>(&outcome)) throwForAnswer(*answer, pinned);
  auto& response = std::get<ChatResponse>(outcome);
  response.servedBy = hooks_.displayName.empty() ? std::string(displayName) : hooks_.displayName;
  if (pinned) selector_->recordSuccess(*pinned, response.usage);
  return std::move(response);
}

HTTPRequest OpenRouterBackend::request(const Call& call, const std::optional<std::string>& pinned) const {
  auto body = ChatExchange::encodedOrThrow([&] {
    return OpenRouterWire::body({.config = config_,
                                 .pinned = pinned,
                                 .messages = call.messages,
                                 .tools = call.tools,
                                 .options = call.options,
                                 .streaming = call.streaming()});
  });
  // Someone may have pasted the key into the conversation, and not every key has a shape that redaction knows.
  if (config_.apiKey.size() >= shortestRealKey) body = Text::replaceAll(std::move(body), config_.apiKey, SecretRedaction::token);
  auto request = ChatExchange::jsonPost(config_.endpoint, std::move(body), config_.timeoutSec);
  for (auto& header : OpenRouterWire::headers(config_, hooks_, call.streaming())) request.headers.push_back(std::move(header));
  return request;
}

void OpenRouterBackend::throwForPayload(const JSONValue& payload, const std::optional<std::string>& pinned) const {
  const auto code = ProviderAttribution::errorCode(payload);
  const auto message = ChatCompletionsWire::errorMessage(payload);
  if (code && message) throwIfProviderFailed(*code, payload.dump(), std::string(OpenRouterWire::errorWords.errorPrefix) + *message, pinned);
}

void OpenRouterBackend::throwForAnswer(const HTTPResponse& answer, const std::optional<std::string>& pinned) const {
  askHooks(answer);
  throwIfProviderFailed(answer.status, answer.body, answer.body, pinned);
  throw ModelBackendError::httpError(answer.status, withoutSecrets(answer.body));
}

void OpenRouterBackend::throwIfProviderFailed(int status, std::string_view body, const std::string& text,
                                              const std::optional<std::string>& pinned) const {
  const auto reason = ProviderAttribution::reason(status, body);
  if (!reason) return;
  const auto error = ModelBackendError::httpError(status, withoutSecrets(text));
  if (pinned) throw ProviderAttributedFailure(error, *pinned, *reason);
  throw error;
}

void OpenRouterBackend::askHooks(const HTTPResponse& answer) const {
  if (hooks_.decodeRouteDirective) {
    const auto route = answer.header(hooks_.routeHeader);
    if (const auto error = hooks_.decodeRouteDirective(route, answer.body)) std::rethrow_exception(error);
    if (route) log(withoutSecrets(*route) + " is not a route this build knows");
  }
  if (hooks_.decodeServiceError)
    if (const auto error = hooks_.decodeServiceError(answer.status, serviceCode(answer.body), answer.body)) std::rethrow_exception(error);
}

std::string OpenRouterBackend::withoutSecrets(std::string text) const {
  if (!config_.apiKey.empty()) text = Text::replaceAll(std::move(text), config_.apiKey, SecretRedaction::token);
  return Text::capped(SecretRedaction::redact(text), errorTextLimit);
}

void OpenRouterBackend::log(const std::string& line) const {
  if (surroundings_.log) surroundings_.log(line);
}

}  // namespace halvo
