#pragma once

#include <cstdint>
#include <optional>
#include <variant>
#include <vector>

#include "AmbitudeCore/Classifier/ClassifierCadence.h"
#include "CaptureShared/Records/EventLogEvent.h"

/// Whether the classifier rests while the person is in a call.
namespace halvo::ClassifierCallHold {

struct OpenEpisode {
  std::int64_t sinceMs = 0;
  bool operator==(const OpenEpisode&) const = default;
};
struct CallBeginning {
  bool operator==(const CallBeginning&) const = default;
};
using Basis = std::variant<OpenEpisode, CallBeginning>;

struct Hold {
  Basis basis = CallBeginning{};
  bool operator==(const Hold&) const = default;
};
struct Proceed {
  bool operator==(const Proceed&) const = default;
};
using Decision = std::variant<Hold, Proceed>;

/// Nothing on this platform tells that a call is on, so there is never one to wait for: always `Proceed`, and a recorded pause of an
/// older run is left behind at the next pass.
inline Decision decide() { return Proceed{}; }

/// When the present hold began; absent, as there is none.
inline std::optional<std::int64_t> holdStart() { return std::nullopt; }

}  // namespace halvo::ClassifierCallHold
