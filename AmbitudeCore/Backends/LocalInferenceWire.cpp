#include "AmbitudeCore/Backends/LocalInferenceWire.h"

#include <fmt/format.h>

#include "AmbitudeCore/Backends/ChatExchange.h"
#include "AmbitudeCore/Backends/ModelBackendError.h"
#include "CaptureShared/Net/URLParts.h"

namespace halvo::LocalInferenceWire {
namespace {

void setPrompt(JSONObject& object, const Body& request) {
  object.set("messages", ChatCompletionsWire::messages(request.messages));
  object.set("chat_template_kwargs", JSONObject{{"enable_thinking", request.options.think}});
}

std::string encoded(const SmallCall& call) {
  JSONObject object{{"model", call.model},
                    {"messages", call.messages},
                    {"max_tokens", call.maxTokens},
                    {"stream", false},
                    {"chat_template_kwargs", JSONObject{{"enable_thinking", false}}}};
  if (call.jsonReply) object.set("response_format", JSONObject{{"type", "json_object"}});
  return ChatExchange::encodedOrThrow([&] { return JSONValue(std::move(object)).dump(); });
}

}  // namespace

std::string chatCompletionsURL(std::string_view base) { return joinedURL(base, chatPath); }

std::string baseURL(std::string_view chatEndpoint) {
  if (chatEndpoint.ends_with(chatPath)) return std::string(chatEndpoint.substr(0, chatEndpoint.size() - chatPath.size()));
  const auto authority = chatEndpoint.find("://");
  const auto end = authority == std::string_view::npos ? std::string_view::npos : chatEndpoint.find('/', authority + 3);
  return std::string(chatEndpoint.substr(0, end));
}

std::string body(const Body& request) {
  auto object = ChatCompletionsWire::commonMembers(request);
  setPrompt(object, request);
  return ChatCompletionsWire::encoded(std::move(object), request.options);
}

std::string templateBody(const Body& request) {
  JSONObject object;
  setPrompt(object, request);
  if (!request.tools.empty()) object.set("tools", ChatCompletionsWire::tools(request.tools));
  return JSONValue(std::move(object)).dump();
}

JSONValue message(ChatRole role, std::string content) { return JSONObject{{"role", rawValue(role)}, {"content", std::move(content)}}; }

JSONValue imageMessage(std::string text, std::string_view pngBase64) {
  return JSONObject{
      {"role", "user"},
      {"content", JSONValue::Array{JSONObject{{"type", "text"}, {"text", std::move(text)}},
                                   JSONObject{{"type", "image_url"},
                                              {"image_url", JSONObject{{"url", fmt::format("data:image/png;base64,{}", pngBase64)}}}}}}};
}

std::string ask(const SmallCall& call, HTTPTransport& transport, const std::stop_token& stop) {
  const auto request = ChatExchange::jsonPost(call.endpoint, encoded(call), call.timeoutSec);
  HTTPResponse response;
  try {
    response = transport.send(request, stop);
  } catch (const TransportError& error) {
    throw ModelBackendError::transportError(error.what());
  }
  if (!response.isSuccess()) throw ModelBackendError::httpError(response.status, response.body);
  return ChatCompletionsWire::reply(response.body, errorWords).text;
}

}  // namespace halvo::LocalInferenceWire
