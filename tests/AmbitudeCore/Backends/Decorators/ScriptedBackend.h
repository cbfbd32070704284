#pragma once

#include <algorithm>
#include <exception>
#include <functional>
#include <string>
#include <vector>

#include "AmbitudeCore/Backends/ModelBackend.h"
#include "AmbitudeCore/Backends/ModelBackendError.h"
#include "CaptureShared/Net/TransportText.h"

namespace halvo::test {

/// A backend that does what it is told, call by call; the last step repeats.
struct ScriptedBackend : ModelBackend {
  struct Step {
    std::vector<std::string> pieces = {};  ///< streamed first
    ChatResponse response = {};
    std::exception_ptr error = {};  ///< thrown in place of the response
  };
  std::vector<Step> steps;
  std::vector<ChatOptions> calls = {};
  std::vector<ChatMessage> messages = {};  ///< of the last call, and its tools
  std::vector<ToolSpec> tools = {};
  std::function<void()> during = {};  ///< runs inside each call

  explicit ScriptedBackend(std::vector<Step> script) : steps(std::move(script)) {}

  ChatResponse chat(const std::vector<ChatMessage>& talk, const std::vector<ToolSpec>& offered, const ChatOptions& options,
                    const std::stop_token& stop) override {
    return chatStream(talk, offered, options, [](const auto&) {}, stop);
  }
  ChatResponse chatStream(const std::vector<ChatMessage>& talk, const std::vector<ToolSpec>& offered, const ChatOptions& options,
                          const StreamCallback& onDelta, const std::stop_token&) override {
    messages = talk, tools = offered;
    const auto& step = steps.at(std::min(calls.size(), steps.size() - 1));
    calls.push_back(options);
    for (const auto& piece : step.pieces) onDelta({.text = piece});
    if (during) during();
    if (step.error) std::rethrow_exception(step.error);
    return step.response;
  }

  static Step says(const std::string& text, int promptTokens = 1) {
    return {.pieces = {text}, .response = {.text = text, .usage = ChatUsage{.promptTokens = promptTokens, .completionTokens = 1}}};
  }
  static Step cutOff(const std::string& text, int promptTokens = 1) {
    auto step = says(text, promptTokens);
    step.response.truncated = true;
    return step;
  }
  static Step fails(const ModelBackendError& error, std::vector<std::string> pieces = {}) {
    return {.pieces = std::move(pieces), .error = std::make_exception_ptr(error)};
  }
};

inline const auto gone = ModelBackendError::transportError("gone");
inline const auto timedOut = ModelBackendError::transportError(TransportText::timedOut());
inline const auto badRequest = ModelBackendError::httpError(400, "bad");

/// A streamed call as whoever reads along sees it: the final text or the error's words, and what the deltas leave on the screen.
struct Played {
  std::string reply = {}, shown = {};
  ChatResponse response = {};
};
inline Played played(ModelBackend& backend, const ChatOptions& options = {}, const std::stop_token& stop = {}) {
  Played result;
  const auto show = [&](const ModelStreamDelta& delta) { result.shown = (delta.resetsPrevious ? "" : result.shown) + delta.text; };
  try {
    result.response = backend.chatStream({}, {}, options, show, stop);
    result.reply = result.response.text;
  } catch (const std::exception& error) {
    result.reply = error.what();
  }
  return result;
}

}  // namespace halvo::test
