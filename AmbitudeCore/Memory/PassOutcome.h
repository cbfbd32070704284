#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>

#include "CaptureShared/Records/StandingMemory.h"

namespace halvo {

/// Why a pass ended early. Nothing is lost by it: the next pass goes on where this one stopped.
struct PassStop {
  enum class Kind {
    paused,   ///< the guardrails or the policy hold: power or warmth
    aborted,  ///< the machine is too hot to go on
    yielded   ///< the person is back
  };
  Kind kind = Kind::yielded;
  std::string reason = {};
  bool operator==(const PassStop&) const = default;
};

/// How a pass ended.
namespace PassResult {
struct LockHeld {};  ///< another process is at it
struct Stopped {
  PassStop stop;
};
struct Unchanged {};  ///< nothing to do
struct Failed {
  std::string reason;
  std::int64_t periodsPending = 0;  ///< periods still without a digest
};
struct Regenerated {
  StandingMemory memory;
  std::optional<std::string> degenerate;  ///< why what was written is no use as a memory
};
struct Folded {
  SequentialMemoryState state;
  std::optional<std::string> degenerate;
};
}  // namespace PassResult

using PassOutcome =
    std::variant<PassResult::LockHeld, PassResult::Stopped, PassResult::Unchanged, PassResult::Failed, PassResult::Regenerated>;
using SequentialPassOutcome =
    std::variant<PassResult::LockHeld, PassResult::Stopped, PassResult::Unchanged, PassResult::Failed, PassResult::Folded>;
using SequentialBackfillOutcome = SequentialPassOutcome;

}  // namespace halvo
