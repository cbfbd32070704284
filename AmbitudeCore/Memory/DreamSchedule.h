#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <variant>

#include "CaptureShared/Foundation/RawValue.h"
#include "CaptureShared/Records/ClassifierTick.h"

/// Whether a pass should start now. Pure.
namespace halvo::DreamSchedule {

inline constexpr std::int64_t minimumIntervalBetweenPasses = 3600;  ///< seconds
inline constexpr std::int64_t unknownPresenceQuietInterval = 7200;  ///< seconds of a silent log that pass for being away
inline constexpr std::int64_t tickStalenessThresholdSec = 180;

enum class Presence { away, present, unknown };

struct Snapshot {
  std::int64_t pendingPeriodCount = 0;
  Presence presence = Presence::unknown;
  std::optional<std::int64_t> latestEventAtMs = {};
  std::optional<std::int64_t> lastPassEndedAtMs = {};
  std::int64_t asOfMs = 0;
};
struct Dream {
  std::int64_t periodCount = 0;
  bool operator==(const Dream&) const = default;
};
struct Hold {
  std::string reason;
  bool operator==(const Hold&) const = default;
};
using Decision = std::variant<Dream, Hold>;

/// A pass or an event after `asOfMs` (the clock was set back) counts as just now.
Decision evaluate(const Snapshot& snapshot);

/// By the newest judgment: a locked screen is away, anything else present, one of more than 180 seconds ago says nothing.
Presence presence(std::span<const ClassifierTick> ticks, std::int64_t asOfMs);

}  // namespace halvo::DreamSchedule

namespace halvo {
template <>
struct RawValues<DreamSchedule::Presence> {
  using Presence = DreamSchedule::Presence;
  static constexpr std::array table{std::pair{Presence::away, "away"}, std::pair{Presence::present, "present"},
                                    std::pair{Presence::unknown, "unknown"}};
};
}  // namespace halvo
