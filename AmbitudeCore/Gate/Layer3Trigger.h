#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <variant>

#include "AmbitudeCore/Backends/ChatTypes.h"
#include "AmbitudeCore/Gate/CallHoldControl.h"
#include "CaptureShared/Foundation/Environment.h"
#include "CaptureShared/Records/ClassifierTick.h"
#include "CaptureShared/Records/EventLogEvent.h"

/// What the driver does at this wake, before anything costs a model call: open a turn because someone waits, hold for a stated reason, or
/// consult the gate.
namespace halvo::Layer3Trigger {

/// A developer asked for a forced check-in.
struct OpenDeveloperCheckinRequested {
  std::int64_t requestedAtMs = 0;
  bool operator==(const OpenDeveloperCheckinRequested&) const = default;
};
/// The person closed the popup a moment ago.
struct HoldForRecentClose {
  std::int64_t sinceMs = 0;
  std::int64_t untilMs = 0;
  bool wasUnansweredCheckin = false;
  bool operator==(const HoldForRecentClose&) const = default;
};
/// A check-in is out, and nothing has changed.
struct HoldForUnansweredCheckin {
  std::int64_t sinceMs = 0;
  std::optional<std::string> anchor = {};  ///< the situation it was about
  bool operator==(const HoldForUnansweredCheckin&) const = default;
};
/// The same hold has outlived its limit; the gate may be asked.
struct CheckinHoldExpired {
  std::int64_t sinceMs = 0;
  std::optional<std::string> anchor = {};
  std::int64_t expiryMs = 0;
  bool operator==(const CheckinHoldExpired&) const = default;
};
/// The person asked for quiet.
struct HoldForUserQuiet {
  std::int64_t untilMs = 0;
  std::optional<std::string> reason = {};
  bool operator==(const HoldForUserQuiet&) const = default;
};
/// A call is in progress.
struct HoldForCall {
  std::int64_t sinceMs = 0;
  bool operator==(const HoldForCall&) const = default;
};
/// A call ended; what the classifier saw may still be of it.
struct HoldAfterCall {
  std::int64_t endedMs = 0;
  int freshTicks = 0;
  bool operator==(const HoldAfterCall&) const = default;
};
/// Nothing holds; ask the gate.
struct ConsultGate {
  bool operator==(const ConsultGate&) const = default;
};
/// Their message waits for a reply.
struct OpenAwaitingReply {
  bool operator==(const OpenAwaitingReply&) const = default;
};
/// Setup finished, and the coach owes a first word.
struct OpenAwaitingSetupFinishedReply {
  bool operator==(const OpenAwaitingSetupFinishedReply&) const = default;
};
/// The popup is open and in use.
struct HoldForOpenPopup {
  bool operator==(const HoldForOpenPopup&) const = default;
};
using Outcome =
    std::variant<OpenDeveloperCheckinRequested, HoldForRecentClose, HoldForUnansweredCheckin, CheckinHoldExpired, HoldForUserQuiet,
                 HoldForCall, HoldAfterCall, ConsultGate, OpenAwaitingReply, OpenAwaitingSetupFinishedReply, HoldForOpenPopup>;

/// `reply` when someone waits for words, `background` for everything else.
ChatTurn turn(const Outcome& outcome);

inline constexpr int postCallFreshTicks = 2;  ///< frames taken after a call before the classifier's view is trusted again

/// 900000, or the seconds of AMBITCAP_UNANSWERED_CHECKIN_HOLD_MAX_SEC when that is a whole number above 0.
std::int64_t unansweredCheckinExpiryMs(const Environment& environment);

struct Wake {
  std::span<const EventLogEvent> events = {};
  std::span<const ClassifierTick> ticks = {};  ///< in the order of the log's readers
  std::int64_t floorMs = 0;                    ///< from `Layer3Floor::resolve`
  std::int64_t asOfMs = 0;
  Environment environment = {};
  CallHoldControl callHold = {};
};

/// First reason wins; someone who waits outranks every hold. Never throws: rows that make no sense are passed over.
Outcome evaluate(const Wake& wake);

}  // namespace halvo::Layer3Trigger
