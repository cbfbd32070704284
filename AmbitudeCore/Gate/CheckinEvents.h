#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "CaptureShared/Records/EventLogEvent.h"

namespace halvo {

/// The `coach_checkin` event: a gate's yes that became words.
namespace Layer3CheckinEvent {
EventLogEvent make(const std::string& summary, std::int64_t asOfMs);
}  // namespace Layer3CheckinEvent

/// The `developer_checkin_requested` event; absent unless developer mode is on.
namespace DeveloperCheckinTrigger {
std::optional<EventLogEvent> make(bool developerModeEnabled, std::int64_t asOfMs);
}  // namespace DeveloperCheckinTrigger

/// The `developer_checkin_forced` event: that request was carried out.
namespace DeveloperCheckinForcedEvent {
EventLogEvent make(std::int64_t requestedAtMs, std::int64_t asOfMs);
}  // namespace DeveloperCheckinForcedEvent

/// The `no_reply_timeout` event of the older road: a reply was waited for in vain.
namespace NoReplyTimeoutEvent {
EventLogEvent make(std::int64_t waitedMs, std::int64_t sinceTsMs, std::int64_t asOfMs);
}  // namespace NoReplyTimeoutEvent

}  // namespace halvo
