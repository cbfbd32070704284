#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "AmbitudeCore/Backends/ChatTypes.h"
#include "CaptureShared/Records/EventLogEvent.h"

/// The rows of the conversation itself.
namespace halvo::AppChatEvents {

/// The key under which a failed turn carries what the person is told.
inline constexpr const char* turnFailedUserReasonKey = "user_reason";

EventLogEvent userMessage(const std::string& text, std::int64_t asOfMs);

struct CoachMessage {
  std::string text = {};
  std::string thinking = {};  ///< empty: none
  bool truncated = false;
  std::int64_t asOfMs = 0;
  std::optional<std::string> servedBy = {};
  bool servedByFallback = false;
  std::optional<ChatProvenance> provenance = {};
  std::optional<FallbackCause> fallbackCause = {};
};
/// Optional keys stand only when they apply.
EventLogEvent coachMessage(const CoachMessage& message);

EventLogEvent turnFailed(const std::string& reason, const std::optional<std::string>& userReason, std::int64_t asOfMs);

/// The cause that a coach message's row names.
std::optional<FallbackCause> fallbackCause(const EventLogEvent& of);

}  // namespace halvo::AppChatEvents
