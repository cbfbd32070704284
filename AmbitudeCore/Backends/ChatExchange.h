#pragma once

#include <functional>
#include <optional>
#include <string>
#include <variant>

#include <fmt/format.h>

#include "AmbitudeCore/Backends/BackendSurroundings.h"
#include "AmbitudeCore/Backends/ChatCompletionsWire.h"
#include "AmbitudeCore/Backends/ModelBackend.h"
#include "AmbitudeCore/Backends/ModelBackendError.h"
#include "CaptureShared/Net/HTTPTransport.h"

/// One request to a chat-completions server and its answer, whichever server it is.
namespace halvo::ChatExchange {

/// What `encode` answers; a `JSONEncodingError` becomes the `ModelBackendError` of a body that cannot be encoded.
template <class Encode>
std::string encodedOrThrow(Encode&& encode) {
  try {
    return encode();
  } catch (const JSONEncodingError& error) {
    throw ModelBackendError::invalidResponse(fmt::format("failed to encode request body: {}", error.what()));
  }
}

HTTPRequest jsonPost(std::string url, std::string body, double timeoutSec);

/// Writes the request where the surroundings want dumps, if they do.
void dump(const HTTPRequest& request, const BackendSurroundings& surroundings);

struct Dialect {
  ChatCompletionsWire::ErrorWords words = {};
  /// Throws for an error payload of a stream. Where it answers, or is empty, an `invalidResponse` in the dialect's words is thrown.
  std::function<void(const JSONValue& payload)> onErrorPayload = {};
  /// The longest a stream may go without a payload, whatever comments keep its connection alive; absent: for ever.
  std::optional<double> payloadTimeoutSec = {};
};

struct Talk {
  HTTPTransport& transport;
  const Dialect& dialect;
  const StreamCallback* onDelta = nullptr;  ///< null: a plain call
  const Clock& clock;
};

/// The reply, or the server's answer when its status is no success. Throws `ModelBackendError`, also for a stream that ends before its last
/// event or grows past `RequestCheck::bodyLimit`, or `Cancelled`.
std::variant<ChatResponse, HTTPResponse> run(const HTTPRequest& request, const Talk& talk, const std::stop_token& stop);

}  // namespace halvo::ChatExchange
