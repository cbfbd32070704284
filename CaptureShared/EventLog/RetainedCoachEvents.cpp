#include "CaptureShared/EventLog/RetainedCoachEvents.h"

#include <set>
#include <string_view>

namespace halvo {

namespace {

const std::set<std::string_view> keptTypes{
    "task_declared",
    "backoff_set",
    "checker_input_received",
    "coach_checkin",
    "onboarding_permission_requested",
    "onboarding_completed",
    "onboarding_reset",
    "onboarding_started",
    "onboarding_resumed",
    "coach_battery_pause_began",
    "coach_battery_pause_ended",
    "coach_battery_pause_notice_shown",
    "coach_battery_pause_notice_dismissed",
    "coach_offline_fallback_began",
    "coach_offline_fallback_ended",
    "coach_offline_fallback_notice_shown",
    "reaction_poll_offered",
    "option_card_offered",
    "option_card_selection_changed",
    "option_card_next_pressed",
    "meds_ask_offered",
};

}  // namespace

std::optional<EventLogEvent> RetainedCoachEvents::compact(EventLogEvent event) {
  if (event.type == "app_chat_message") {
    const auto* role = event.detail.find("role");
    event.detail = JSONObject{{"role", role ? *role : JSONValue()}};
    return event;
  }
  if (keptTypes.contains(event.type) || event.type.starts_with("onboarding_v3_")) return event;
  return std::nullopt;
}

}  // namespace halvo
