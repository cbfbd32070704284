#pragma once

#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "AmbitudeCore/Backends/ChatCompletionsWire.h"
#include "CaptureShared/Net/HTTPTransport.h"

/// The local inference server's addresses, request bodies and small calls.
namespace halvo::LocalInferenceWire {

inline constexpr std::string_view chatPath = "v1/chat/completions";
/// `base` with `chatPath` behind it.
std::string chatCompletionsURL(std::string_view base);
/// The base URL of a full chat endpoint: what stands before "v1/chat/completions", else scheme and host alone.
std::string baseURL(std::string_view chatEndpoint);

inline constexpr ChatCompletionsWire::ErrorWords errorWords{.notAnObject = "llama-server response was not a JSON object",
                                                            .errorPrefix = "llama-server error: ",
                                                            .noMessage = "llama-server response had no choices[0].message"};

using ChatCompletionsWire::Body, ChatCompletionsWire::Streaming;
/// The encoded body of a chat request, keys sorted, the response schema last. Throws `JSONEncodingError`.
std::string body(const Body& request);
/// The parts of that body that decide its prompt, for "/apply-template". Throws `JSONEncodingError`.
std::string templateBody(const Body& request);

/// A single question to the local model outside any conversation: the classifier's, an estimate's, a picture's.
struct SmallCall {
  std::string endpoint = {};  ///< the full chat endpoint
  std::string model = {};
  JSONValue::Array messages = {};  ///< as they go over the wire; a picture's message has a list for its content
  int maxTokens = 256;
  double timeoutSec = 60;
  bool jsonReply = false;  ///< ask for a JSON object
};
/// A message of plain text.
JSONValue message(ChatRole role, std::string content);
/// A user message of a text and one PNG.
JSONValue imageMessage(std::string text, std::string_view pngBase64);

/// Asks, without thinking, and answers the reply's text. Throws `ModelBackendError` or `Cancelled`. Nothing is retried.
std::string ask(const SmallCall& call, HTTPTransport& transport, const std::stop_token& stop);

}  // namespace halvo::LocalInferenceWire
