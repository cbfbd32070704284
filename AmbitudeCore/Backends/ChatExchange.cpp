#include "AmbitudeCore/Backends/ChatExchange.h"

#include <stdexcept>

#include "AmbitudeCore/Backends/RequestDump.h"
#include "AmbitudeCore/Backends/StreamAccumulator.h"
#include "CaptureShared/Net/EventStreamReader.h"
#include "CaptureShared/Net/RequestCheck.h"
#include "CaptureShared/Net/TransportText.h"

namespace halvo::ChatExchange {
namespace {

/// A streamed reply on its way in.
class Incoming {
 public:
  explicit Incoming(const Talk& talk) : talk_(talk), lastPayloadMs_(talk.clock.nowMs()) {}

  void feed(std::string_view bytes) {
    bytes_ += bytes.size();
    if (bytes_ > RequestCheck::bodyLimit) throw TransportError(TransportText::badResponse("stream over 67108864 bytes"));
    events_.feed(bytes, onData_);
    const auto patience = talk_.dialect.payloadTimeoutSec;
    if (patience && !events_.isDone() && talk_.clock.nowMs() - lastPayloadMs_ > static_cast<std::int64_t>(*patience * 1000))
      throw TransportError(TransportText::timedOut());
  }

  ChatResponse finished() {
    events_.finish(onData_);
    // A stream that just ends has been cut off on its way: what came so far is no reply.
    if (!events_.isDone() && !accumulator_.isFinished())
      throw TransportError(TransportText::connectionLost("the stream ended before its last event"));
    if (!accumulator_.hasChoices()) throw ModelBackendError::invalidResponse(std::string(talk_.dialect.words.noMessage));
    return accumulator_.response();
  }

 private:
  void take(std::string_view text) {
    const auto payload = JSONValue::parse(text);
    if (!payload) return;
    lastPayloadMs_ = talk_.clock.nowMs();
    if (const auto message = ChatCompletionsWire::errorMessage(*payload)) {
      if (talk_.dialect.onErrorPayload) talk_.dialect.onErrorPayload(*payload);
      throw ModelBackendError::invalidResponse(std::string(talk_.dialect.words.errorPrefix) + *message);
    }
    if (const auto delta = accumulator_.feed(*payload)) (*talk_.onDelta)(*delta);
  }

  const Talk& talk_;
  std::int64_t lastPayloadMs_;
  std::size_t bytes_ = 0;
  StreamAccumulator accumulator_;
  EventStreamReader events_;
  EventStreamReader::OnData onData_ = [this](std::string_view text) { take(text); };
};

}  // namespace

HTTPRequest jsonPost(std::string url, std::string body, double timeoutSec) {
  return {.method = "POST",
          .url = std::move(url),
          .headers = {{"Content-Type", "application/json"}},
          .body = std::move(body),
          .timeoutSec = timeoutSec};
}

void dump(const HTTPRequest& request, const BackendSurroundings& surroundings) {
  if (!surroundings.dumpDirectory || !RequestDump::isEnabled(surroundings.environment)) return;
  RequestDump::write({.method = request.method,
                      .endpoint = request.url,
                      .headers = request.headers,
                      .body = request.body,
                      .nowMs = surroundings.clock.nowMs()},
                     *surroundings.dumpDirectory);
}

std::variant<ChatResponse, HTTPResponse> run(const HTTPRequest& request, const Talk& talk, const std::stop_token& stop) {
  try {
    RequestCheck::requireCleanHead(request);
  } catch (const std::invalid_argument& error) {
    throw ModelBackendError::invalidResponse(fmt::format("failed to encode request: {}", error.what()));
  }
  try {
    if (!talk.onDelta) {
      auto answer = talk.transport.send(request, stop);
      if (!answer.isSuccess()) return answer;
      return ChatCompletionsWire::reply(answer.body, talk.dialect.words);
    }
    Incoming incoming(talk);
    auto answer = talk.transport.stream(request, [&](std::string_view bytes) { incoming.feed(bytes); }, stop);
    if (!answer.isSuccess()) return answer;
    return incoming.finished();
  } catch (const TransportError& error) {
    throw ModelBackendError::transportError(error.what());
  }
}

}  // namespace halvo::ChatExchange
