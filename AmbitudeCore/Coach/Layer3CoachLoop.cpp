#include "AmbitudeCore/Coach/Layer3CoachLoop.h"

#include "AmbitudeCore/Backends/ModelBackendError.h"
#include "AmbitudeCore/Coach/CoachTurnEffects.h"
#include "AmbitudeCore/Coach/Layer3Conversation.h"
#include "AmbitudeCore/Coach/TurnTimeout.h"
#include "CaptureShared/Foundation/Translation.h"
#include "CaptureShared/Privacy/ScreenText.h"

namespace halvo {

namespace Layer3CoachLoop {

namespace {

/// The conversation with the calls and their answers behind it.
std::vector<ChatMessage> answered(const Layer3TurnRequest& request, const ChatResponse& first,
                                  const CoachTurnEffects::ToolEffects& effects) {
  auto messages = request.messages;
  std::vector<ToolCall> calls;
  for (const auto& effect : effects.taken) calls.push_back(Layer3Conversation::withoutTurnMarkers(effect.call));
  messages.push_back(ChatMessage::assistant(first.text, calls, first.thinking.empty() ? std::nullopt : std::optional(first.thinking),
                                            first.reasoningDetailsJSON));
  for (const auto& effect : effects.taken)
    messages.push_back(ChatMessage::toolResult(effect.call.name, ScreenText::breakTurnMarkers(effect.result)));
  return messages;
}

ChatResponse merged(ChatResponse first, ChatResponse second) {
  second.toolCalls.insert(second.toolCalls.begin(), first.toolCalls.begin(), first.toolCalls.end());
  if (!first.thinking.empty()) second.thinking = second.thinking.empty() ? first.thinking : first.thinking + "\n\n" + second.thinking;
  second.usage = ChatUsage::combining(first.usage, second.usage);
  return second;
}

}  // namespace

ChatResponse runTurn(const Layer3TurnRequest& request, ModelBackend& backend, const Calendar& calendar, const StreamCallback& onDelta,
                     const std::stop_token& stop) {
  auto first = backend.chatStream(request.messages, request.tools, request.options, onDelta, stop);
  if (first.truncated || first.toolCalls.empty()) return first;
  const auto effects = CoachTurnEffects::toolEffects(first.toolCalls, request.asOfMs, request.correctJudgment, calendar);
  if (effects.taken.empty() || !CoachTurnEffects::spokenText(first, effects).empty()) return first;
  auto second = backend.chatStream(answered(request, first, effects), request.tools, request.options, onDelta, stop);
  return merged(std::move(first), std::move(second));
}

}  // namespace Layer3CoachLoop

ChatResponse Layer3TurnRunner::run(const Layer3TurnRequest& request, ModelBackend& backend, const Calendar& calendar,
                                   const StreamCallback& onDelta, const std::stop_token& stop, double timeoutSeconds) {
  return TurnTimeout::run(timeoutSeconds, stop, [&](const std::stop_token& bounded) {
    return Layer3CoachLoop::runTurn(request, backend, calendar, onDelta, bounded);
  });
}

std::optional<std::string> CoachTurnFailureCopy::userReason(const std::exception& error, ChatTurn turn) {
  if (turn == ChatTurn::background) return std::nullopt;
  const auto* backendError = dynamic_cast<const ModelBackendError*>(&error);
  if (dynamic_cast<const TurnTimeout::Exceeded*>(&error) || (backendError && backendError->isTimeout()))
    return trMark("The coach took too long to answer. Your message is kept, and it will try again.");
  if (backendError && backendError->kind() == ModelBackendError::Kind::transportError)
    return trMark("The coach can't be reached right now. Your message is kept, and it will try again.");
  return noReply(turn);
}

std::optional<std::string> CoachTurnFailureCopy::noReply(ChatTurn turn) {
  if (turn == ChatTurn::background) return std::nullopt;
  return trMark("The coach couldn't answer this time. Your message is kept, and it will try again.");
}

}  // namespace halvo
