#pragma once

#include <functional>
#include <optional>
#include <stop_token>
#include <string>

#include "AmbitudeCore/Backends/ModelBackend.h"
#include "AmbitudeCore/Gate/GateOutcome.h"
#include "AmbitudeCore/Gate/GateUnconstrainedBreaker.h"

/// One model call answers one question: does the coach get to run at all, once, for this moment.
namespace halvo::CoachGate {

inline constexpr std::size_t rawTextCap = 300;  ///< characters of a model's reply in a log line

/// The callbacks run on the caller's thread and must not throw.
struct Question {
  std::string message = {};                           ///< from `CoachGateMessage::build`; the call's only message
  int maxTokens = 4096;                               ///< thinking included
  std::optional<std::string> sessionID = {};          ///< from `CoachGateSessionID::value`
  bool unconstrained = true;                          ///< first ask without a schema: under one the model stops reasoning
  GateUnconstrainedBreaker* breaker = nullptr;        ///< may be null
  std::function<void(const ChatResponse&)> onUsage = {};              ///< after every call that answered
  std::function<void(const std::string&)> onUnconstrainedRetry = {};  ///< one line, secrets redacted
  std::function<void(const std::exception&)> onBackendError = {};
};

/// Asks, and turns the reply into an outcome; a reply that can't be read is asked for once more, under the schema. Throws nothing but
/// `Cancelled`, when the token's stop ended a call.
GateOutcome decide(ModelBackend& backend, const Question& question, const std::stop_token& stop = {});

}  // namespace halvo::CoachGate
