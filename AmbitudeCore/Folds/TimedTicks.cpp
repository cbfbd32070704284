#include "AmbitudeCore/Folds/TimedTicks.h"

#include <algorithm>
#include <limits>

namespace halvo::TimedTicks {
namespace {
constexpr auto earliest = std::numeric_limits<std::int64_t>::min();

std::int64_t lessSlack(std::int64_t ms) { return ms < earliest + orderSlackMs ? earliest : ms - orderSlackMs; }
}  // namespace

std::vector<TimedTick> within(std::span<const ClassifierTick> ticks, std::int64_t fromMs, std::int64_t toMs) {
  std::vector<TimedTick> found;
  const auto giveUpBefore = lessSlack(fromMs);
  for (auto index = ticks.size(); index-- > 0;) {
    const auto ms = ticks[index].atMs();
    if (!ms) continue;
    if (*ms < giveUpBefore) break;
    if (*ms >= fromMs && *ms <= toMs) found.push_back({*ms, &ticks[index]});
  }
  std::ranges::reverse(found);
  if (!std::ranges::is_sorted(found, {}, &TimedTick::tsMs)) std::ranges::stable_sort(found, {}, &TimedTick::tsMs);
  return found;
}

std::optional<TimedTick> newest(std::span<const ClassifierTick> ticks, std::int64_t asOfMs) {
  std::optional<TimedTick> best;
  for (auto index = ticks.size(); index-- > 0;) {
    const auto ms = ticks[index].atMs();
    if (!ms || *ms > asOfMs) continue;
    if (best && *ms < lessSlack(best->tsMs)) break;
    if (!best || *ms > best->tsMs) best = TimedTick{*ms, &ticks[index]};
  }
  return best;
}

std::optional<std::int64_t> latestMs(std::span<const ClassifierTick> ticks) {
  const auto found = newest(ticks, std::numeric_limits<std::int64_t>::max());
  return found ? std::optional(found->tsMs) : std::nullopt;
}

std::size_t stateRunStart(std::span<const TimedTick> ticks) {
  auto start = ticks.size() - 1;
  while (start > 0 && ticks[start - 1].tick->state == ticks.back().tick->state) --start;
  return start;
}

}  // namespace halvo::TimedTicks
