#pragma once

#include <stop_token>
#include <vector>

#include "AmbitudeCore/Backends/ModelBackend.h"
#include "AmbitudeCore/Coach/CoachToolArguments.h"
#include "CaptureShared/Foundation/Calendar.h"

namespace halvo {

/// A turn's call.
struct Layer3TurnRequest {
  std::vector<ChatMessage> messages = {};
  std::vector<ToolSpec> tools = {};
  ChatOptions options = {};
  std::int64_t asOfMs = 0;
  CorrectJudgmentGuard::Verdict correctJudgment = CorrectJudgmentGuard::Verdict::allowed;
};

namespace Layer3CoachLoop {
/// Makes the call. A reply that is tool calls and no words is answered with what became of them and asked once more, so that the turn ends
/// in words; the two are then one response, with every call of both and their usage together. Throws `ModelBackendError`, `Cancelled`.
ChatResponse runTurn(const Layer3TurnRequest& request, ModelBackend& backend, const Calendar& calendar, const StreamCallback& onDelta,
                     const std::stop_token& stop);
}  // namespace Layer3CoachLoop

namespace Layer3TurnRunner {
/// The local server's own limit is 300 s a call; a turn is given a little more, so that the server's error arrives first.
inline constexpr double defaultTimeoutSeconds = 330;
/// `runTurn`, bounded in time. Throws `TurnTimeout::Exceeded` too.
ChatResponse run(const Layer3TurnRequest& request, ModelBackend& backend, const Calendar& calendar, const StreamCallback& onDelta,
                 const std::stop_token& stop, double timeoutSeconds = defaultTimeoutSeconds);
}  // namespace Layer3TurnRunner

/// The words for the person when a turn failed; absent where nobody asked (a check-in).
namespace CoachTurnFailureCopy {
std::optional<std::string> userReason(const std::exception& error, ChatTurn turn);
/// For a turn that came back and brought nothing that can be shown.
std::optional<std::string> noReply(ChatTurn turn);
}  // namespace CoachTurnFailureCopy

}  // namespace halvo
