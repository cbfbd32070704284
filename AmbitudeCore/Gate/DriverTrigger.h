#pragma once

#include <cstdint>
#include <variant>

/// What the older road's trigger could answer. That road only idles now; its outcomes stay for what was recorded of it.
namespace halvo::DriverTrigger {

struct TimedOutWaitingForReply {
  std::int64_t sinceTsMs = 0;
  bool operator==(const TimedOutWaitingForReply&) const = default;
};
struct DeferredMachineLocked {
  std::int64_t sinceTsMs = 0;
  bool operator==(const DeferredMachineLocked&) const = default;
};
struct DeferredOnTask {
  std::int64_t sinceTsMs = 0;
  bool operator==(const DeferredOnTask&) const = default;
};
struct DeferredBackOff {
  std::int64_t sinceTsMs = 0;
  std::int64_t untilTsMs = 0;
  bool operator==(const DeferredBackOff&) const = default;
};
struct NothingNew {
  bool operator==(const NothingNew&) const = default;
};
struct ReadyForTurn {
  bool operator==(const ReadyForTurn&) const = default;
};
struct NoReactableTurn {
  bool operator==(const NoReactableTurn&) const = default;
};
using Outcome = std::variant<TimedOutWaitingForReply, DeferredMachineLocked, DeferredOnTask, DeferredBackOff, NothingNew, ReadyForTurn,
                             NoReactableTurn>;

}  // namespace halvo::DriverTrigger
