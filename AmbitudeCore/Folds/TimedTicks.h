#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "CaptureShared/Records/ClassifierTick.h"

namespace halvo {

/// A judgment and its parsed time. It points into the list it was taken from.
struct TimedTick {
  std::int64_t tsMs = 0;
  const ClassifierTick* tick = nullptr;

  bool isAbstained() const { return tick->state == "ABSTAINED"; }
};

/// Judgments by their real time. The lists come from the log's readers, ordered by time or by the text of `at`, which is local time: the
/// real order differs from that by no more than the distance between two offsets. So a walk from the newest row may end once it is that
/// far past its goal, and a year of rows costs no more than the stretch that is asked for. A row whose `at` does not parse is passed over.
namespace TimedTicks {

/// The widest distance between two zones' offsets, -12:00 to +14:00.
inline constexpr std::int64_t orderSlackMs = 26LL * 3'600'000;

/// The rows of the closed range, oldest first; rows of equal time keep their order.
std::vector<TimedTick> within(std::span<const ClassifierTick> ticks, std::int64_t fromMs, std::int64_t toMs);
/// The newest row at or before a moment; of equal times the later row.
std::optional<TimedTick> newest(std::span<const ClassifierTick> ticks, std::int64_t asOfMs);
/// The time of the newest row.
std::optional<std::int64_t> latestMs(std::span<const ClassifierTick> ticks);

/// Where the trailing run of rows with the last row's `state` begins. `ticks` must not be empty.
std::size_t stateRunStart(std::span<const TimedTick> ticks);

}  // namespace TimedTicks
}  // namespace halvo
