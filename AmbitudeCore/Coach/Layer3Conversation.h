#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "AmbitudeCore/Backends/ChatTypes.h"
#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Records/EventLogEvent.h"

/// The conversation as the model sees it, rebuilt from the event log at every turn; it has no store of its own. What the user said begins
/// with the time alone in brackets; what the system reports opens with the time in words. Nothing quoted from a screen can pass for the
/// user's voice.
namespace halvo {

namespace Layer3Conversation {

inline constexpr std::int64_t windowMs = 86'400'000;       ///< how far back it reaches
inline constexpr std::int64_t gapMarkerMs = 600'000;       ///< a longer silence gets a line of its own

struct View {
  std::span<const EventLogEvent> events = {};  ///< sorted by time
  std::int64_t floorMs = 0;
  std::int64_t asOfMs = 0;
  double stepSec = 3600.0;  ///< the window's start is rounded down to a multiple of this
};
/// Ends on the last thing that was said.
std::vector<ChatMessage> project(const View& view, const Calendar& calendar);
/// The same and, behind it, the notice of a check-in that is about to be: what the log will give once it is written.
std::vector<ChatMessage> projectNewCheckin(const View& view, const std::string& summary, const Calendar& calendar);

/// A call with the turn markers in its arguments broken: they are a model's words, and it may have put together again what was broken for
/// it.
ToolCall withoutTurnMarkers(ToolCall call);

/// "— 40 minutes later —", "— 1.5 hours later —".
std::string gapMarker(std::int64_t gapMs);

}  // namespace Layer3Conversation

/// The conversation part of the two kinds of turn.
namespace Layer3Request {
struct Turn {
  std::span<const EventLogEvent> events = {};
  std::int64_t floorMs = 0;
  std::int64_t asOfMs = 0;
  std::optional<std::string> medsStatus = {};  ///< stands at the very end, where a change costs no cache
};
std::vector<ChatMessage> forReply(const Turn& turn, const Calendar& calendar);
std::vector<ChatMessage> forCheckin(const Turn& turn, const std::string& summary, const Calendar& calendar);
}  // namespace Layer3Request

}  // namespace halvo
