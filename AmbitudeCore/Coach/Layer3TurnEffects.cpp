#include "AmbitudeCore/Coach/Layer3TurnEffects.h"

#include <algorithm>

#include "AmbitudeCore/Coach/AppChatEvents.h"
#include "AmbitudeCore/Coach/CoachTurnEffects.h"
#include "AmbitudeCore/Gate/CheckinEvents.h"

namespace halvo::Layer3TurnEffects {

bool deliveredAReply(const std::vector<EventLogEvent>& events) {
  return std::any_of(events.begin(), events.end(), [](const EventLogEvent& event) {
    const auto* role = event.type == "app_chat_message" ? event.text("role") : nullptr;
    return role && *role == "coach";
  });
}

std::vector<EventLogEvent> events(const Turn& turn, const Calendar& calendar) {
  auto base = CoachTurnEffects::baseEvents(turn.response, turn.asOfMs, turn.correctJudgment, calendar);
  if (deliveredAReply(base)) {
    if (!turn.checkinSummary) return base;
    std::vector<EventLogEvent> all{Layer3CheckinEvent::make(*turn.checkinSummary, turn.asOfMs)};
    all.insert(all.end(), base.begin(), base.end());
    all.push_back(CoachTurnEffects::event("ui_opened", {}, turn.asOfMs));
    return all;
  }
  if (turn.noReplyFallbackText) return {AppChatEvents::coachMessage({.text = *turn.noReplyFallbackText, .asOfMs = turn.asOfMs})};
  if (!turn.response.toolCalls.empty()) {
    const auto failed =
        std::find_if(base.begin(), base.end(), [](const EventLogEvent& event) { return event.type == "coach_turn_failed"; });
    if (failed != base.end()) return {*failed};
  }
  return {AppChatEvents::turnFailed("it decided to check in but didn't produce a reply", std::nullopt, turn.asOfMs)};
}

}  // namespace halvo::Layer3TurnEffects
