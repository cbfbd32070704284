#include "AmbitudeCore/Classifier/ClassifierBackend.h"

#include <algorithm>
#include <array>

#include "AmbitudeCore/Backends/LocalInferenceWire.h"
#include "AmbitudeCore/Backends/ModelBackendError.h"
#include "AmbitudeCore/Classifier/ModelReply.h"

namespace halvo::ClassifierBackend {
namespace {

constexpr std::array<std::string_view, 4> answerableStates{"ON_TASK", "NOT_ALIGNED", "IDLE", "NO_TASK"};

ClassifierJudgment parsed(const std::string& content) {
  const auto refuse = [&](std::string_view what) {
    return ModelBackendError::invalidResponse(std::string(what) + " " + ModelReply::excerpt(content));
  };
  const auto json = JSONValue::parse(content);
  const auto* object = json ? json->objectValue() : nullptr;
  if (!object) throw refuse("message.content was not valid JSON:");
  const auto state = object->string("state");
  if (!state || std::find(answerableStates.begin(), answerableStates.end(), *state) == answerableStates.end())
    throw refuse("message.content had no known state:");
  const auto confidence = object->number("confidence");
  if (!confidence) throw refuse("message.content had no numeric confidence:");
  return {.state = *state, .confidence = std::clamp(*confidence, 0.0, 1.0), .reason = object->string("reason").value_or("")};
}

}  // namespace

ClassifierJudgment judge(std::string_view system, std::string_view user, const Config& config, HTTPTransport& transport,
                         const std::stop_token& stop) {
  return parsed(LocalInferenceWire::ask({.endpoint = config.endpoint,
                                         .model = config.model,
                                         .messages = {LocalInferenceWire::message(ChatRole::system, std::string(system)),
                                                      LocalInferenceWire::message(ChatRole::user, std::string(user))},
                                         .maxTokens = config.numPredict,
                                         .timeoutSec = config.timeout,
                                         .jsonReply = true},
                                        transport, stop));
}

}  // namespace halvo::ClassifierBackend
