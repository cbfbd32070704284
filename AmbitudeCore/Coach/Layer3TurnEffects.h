#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "AmbitudeCore/Backends/ChatTypes.h"
#include "AmbitudeCore/Coach/CoachToolArguments.h"
#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Records/EventLogEvent.h"

/// A turn's response as the events that the rest of the system reads, to be appended in order.
namespace halvo::Layer3TurnEffects {

struct Turn {
  std::optional<std::string> checkinSummary = {};  ///< the gate's yes that opened it; absent for a reply to the user
  ChatResponse response = {};
  std::vector<ChatMessage> messages = {};          ///< the conversation as it was sent
  std::int64_t asOfMs = 0;
  std::optional<std::string> noReplyFallbackText = {};
  CorrectJudgmentGuard::Verdict correctJudgment = CorrectJudgmentGuard::Verdict::allowed;
};
/// A check-in is written only when words came of it: a yes that produced none leaves none behind.
std::vector<EventLogEvent> events(const Turn& turn, const Calendar& calendar);

/// Whether a coach message is among them.
bool deliveredAReply(const std::vector<EventLogEvent>& events);

}  // namespace halvo::Layer3TurnEffects
