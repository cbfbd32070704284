#pragma once

#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/JSONValue.h"
#include "CaptureShared/Net/HTTPTransport.h"

namespace halvo::test {

/// A model server in the test's own hands: it keeps the requests and answers by what it is asked.
class ScriptedModel : public HTTPTransport {
 public:
  /// The reply's text by the system prompt's first words, or by "image" for a picture; the whole body for an address without a question.
  /// Absent: the connection fails.
  std::function<std::optional<std::string>(const std::string& question)> answer;
  int status = 200;
  std::vector<HTTPRequest> requests;

  HTTPResponse send(const HTTPRequest& request, const std::stop_token& stop) override {
    throwIfStopped(stop);
    requests.push_back(request);
    const auto text = answer ? answer(question(request)) : std::nullopt;
    if (!text) throw TransportError("Error Domain=NSURLErrorDomain Code=-1004 \"Could not connect to the server.\"");
    if (request.body.empty()) return {.status = status, .body = *text};
    const JSONValue body = JSONObject{
        {"choices", JSONValue::Array{JSONObject{{"finish_reason", "stop"}, {"message", JSONObject{{"content", *text}}}}}}};
    return {.status = status, .body = body.dump()};
  }
  HTTPResponse stream(const HTTPRequest& request, const std::function<void(std::string_view)>&, const std::stop_token& stop) override {
    return send(request, stop);
  }

  /// What a request asks: the address's last part when it has no body, "image", or the system message.
  static std::string question(const HTTPRequest& request) {
    const auto body = JSONValue::parse(request.body);
    if (!body) return request.url.substr(request.url.rfind('/') + 1);
    const auto* content = body->at({"messages", "0", "content"});
    return content && content->stringValue() ? *content->stringValue() : "image";
  }
  /// The user message of the newest request that asked `question`'s first words.
  std::string userMessage(std::string_view beginning) const {
    for (auto request = requests.rbegin(); request != requests.rend(); ++request)
      if (question(*request).starts_with(beginning))
        return *JSONValue::parse(request->body)->at({"messages", "1", "content"})->stringValue();
    return {};
  }
};

inline constexpr const char* judgesActivity = "You are an ambitude check";
inline constexpr const char* checksReason = "A classifier on this computer";
inline constexpr const char* readsEstimate = "You extract a time estimate";

}  // namespace halvo::test
