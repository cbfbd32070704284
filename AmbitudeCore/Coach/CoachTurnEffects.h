#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "AmbitudeCore/Backends/ChatTypes.h"
#include "AmbitudeCore/Coach/CoachToolArguments.h"
#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Records/EventLogEvent.h"

/// What a reply changes, as events. Nothing a model wrote names a file, an address or a command; unknown tools and extra arguments are
/// data.
namespace halvo::CoachTurnEffects {

inline constexpr const char* truncationUserReason = "The coach's reply got cut off, so it wasn't shown.";

/// A call as it was taken.
struct ToolEffect {
  ToolCall call;
  std::vector<EventLogEvent> events = {};  ///< what it changes, or the marker of why it was refused
  std::string result = {};                 ///< what the model reads back
  bool isRefused = false;                  ///< it changed nothing: it could not be used, or may not be
};
struct ToolEffects {
  std::vector<ToolEffect> taken = {};
  std::vector<EventLogEvent> markers = {};           ///< of calls that were not taken
  std::vector<std::string> unrecognized = {};        ///< names
  std::vector<std::string> droppedDuplicates = {};
  /// The `message` argument that serves when the reply has no text. A refused call's does not: "quiet till 4" must not be said of a window
  /// that does not exist.
  std::optional<std::string> message = {};
};
/// Reads the calls of a turn in order. A second call that is identical to an earlier one is dropped. Never throws.
ToolEffects toolEffects(const std::vector<ToolCall>& calls, std::int64_t asOfMs, CorrectJudgmentGuard::Verdict correctJudgment,
                        const Calendar& calendar);

/// Why a reply may not be shown at all.
struct Rejection {
  EventLogEvent event = {};                        ///< the marker that keeps it, for the machine's owner
  std::string reason = {};
  std::optional<std::string> userReason = {};      ///< for whoever waits for the reply; the turn's failure carries it
};
/// A truncated, degenerate or empty reply; absent for one that may be shown. The `message` of a call is looked at as the text is.
std::optional<Rejection> rejection(const ChatResponse& response, std::int64_t asOfMs);

/// The events of a reply in order: its tools' events, the `coach_decision`, the message; or the marker of a rejected one. All at `asOfMs`.
std::vector<EventLogEvent> baseEvents(const ChatResponse& response, std::int64_t asOfMs, CorrectJudgmentGuard::Verdict correctJudgment,
                                      const Calendar& calendar);

/// The reply's words as they are shown: its text without silence and leaked calls, else the `message` of its tools, else empty.
std::string spokenText(const ChatResponse& response, const ToolEffects& effects);

/// The same turn without the corrections it was to record, because they could not be kept: each gives way to a marker, and the coach reads that
/// nothing was saved.
std::vector<EventLogEvent> withoutCorrections(std::vector<EventLogEvent> events);

/// A `ui_closed` by the person.
EventLogEvent userDismissedUIEvent(std::int64_t asOfMs);

/// An event of the coach's own.
EventLogEvent event(const char* type, JSONObject detail, std::int64_t asOfMs);

}  // namespace halvo::CoachTurnEffects

/// The `turn_truncated` event: a reply was cut off, and where.
namespace halvo::TurnTruncatedEvent {
EventLogEvent make(const std::string& reason, std::int64_t asOfMs);
}  // namespace halvo::TurnTruncatedEvent
