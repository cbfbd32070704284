#pragma once

#include <string_view>

/// The event types that folds and the gate read, each in one place.
namespace halvo::EventType {

inline constexpr std::string_view taskDeclared = "task_declared";
inline constexpr std::string_view taskCleared = "task_cleared";
inline constexpr std::string_view chatMessage = "app_chat_message";
inline constexpr std::string_view coachCheckin = "coach_checkin";
inline constexpr std::string_view coachTurnFailed = "coach_turn_failed";
inline constexpr std::string_view uiOpened = "ui_opened";
inline constexpr std::string_view uiClosed = "ui_closed";
inline constexpr std::string_view emptyOpenUI = "empty_open_ui";
inline constexpr std::string_view coachServiceProblem = "coach_service_problem";
inline constexpr std::string_view coachServiceRestored = "coach_service_restored";
inline constexpr std::string_view userQuietRequested = "user_quiet_requested";
inline constexpr std::string_view userQuietCancelled = "user_quiet_cancelled";
inline constexpr std::string_view userQuietMalformed = "user_quiet_malformed";
inline constexpr std::string_view doNotDisturb = "do_not_disturb";
inline constexpr std::string_view doNotDisturbEnded = "do_not_disturb_ended";
inline constexpr std::string_view inCallBegan = "in_call_began";
inline constexpr std::string_view inCallEnded = "in_call_ended";
inline constexpr std::string_view developerCheckinRequested = "developer_checkin_requested";
inline constexpr std::string_view developerCheckinForced = "developer_checkin_forced";
inline constexpr std::string_view noReplyTimeout = "no_reply_timeout";
inline constexpr std::string_view onboardingStarted = "onboarding_started";
inline constexpr std::string_view onboardingReset = "onboarding_reset";
inline constexpr std::string_view onboardingSetupFinished = "onboarding_v3_setup_finished";
inline constexpr std::string_view correctionRecorded = "coach_correction_recorded";

}  // namespace halvo::EventType
