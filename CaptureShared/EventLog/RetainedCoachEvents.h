#pragma once

#include <optional>
#include <vector>

#include "CaptureShared/EventLog/DeltaFold.h"
#include "CaptureShared/Records/EventLogEvent.h"

namespace halvo {

/// The events that an open chat holds for as long as it is open, in a compact form: of a chat message only its role, of the rest only the types that
/// the chat needs.
class RetainedCoachEvents {
 public:
  RetainedCoachEvents() : fold_([](const EventLogEvent& a, const EventLogEvent& b) { return a.tsMs < b.tsMs; }) {}

  void apply(IncrementalReadResult<EventLogEvent> result) { fold_.apply(std::move(result), compact); }
  /// Sorted by time.
  const std::vector<EventLogEvent>& events() { return fold_.sorted(); }

  /// The row as it is kept; absent when the chat has no use for it.
  static std::optional<EventLogEvent> compact(EventLogEvent event);

 private:
  DeltaFold<EventLogEvent> fold_;
};

}  // namespace halvo
