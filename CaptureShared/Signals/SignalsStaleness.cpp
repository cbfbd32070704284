#include "CaptureShared/Signals/SignalsStaleness.h"

#include <fmt/format.h>

#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Foundation/Translation.h"

namespace halvo::SignalsStaleness {

bool isStale(std::int64_t latestTickMs, std::int64_t nowMs, std::int64_t threshold) { return nowMs - latestTickMs > threshold; }

bool isTrustworthy(std::int64_t nowMs, std::optional<std::int64_t> classifierLastRanAtMs, int regimeGapSec) {
  return classifierLastRanAtMs && std::int64_t{regimeGapSec} * 1000 >= nowMs - *classifierLastRanAtMs;
}

Decision decide(const Moment& moment) {
  if (!moment.latestTickMs) return NotChecked{};
  const auto latest = *moment.latestTickMs;
  const auto gap = moment.nowMs - latest;
  const bool trustworthy = isTrustworthy(moment.nowMs, moment.classifierLastRanAtMs, moment.regimeGapSec);
  if (const auto* pause = std::get_if<Active>(&moment.pause); pause && pause->startedAtMs && latest < *pause->startedAtMs) {
    if (moment.nowMs - *pause->startedAtMs >= moment.threshold && trustworthy) return StaleConfirmed{gap, latest};
    return PredatesPause{latest, *pause->startedAtMs};
  }
  if (!isStale(latest, moment.nowMs, moment.threshold)) return Fresh{};
  if (trustworthy) return StaleConfirmed{gap, latest};
  return StaleButUntrustworthy{gap};
}

std::string reason(std::int64_t gapMs, std::int64_t lastTickAtMs) {
  return fmt::format("signals stale since {} ({} with no new signals.sqlite row) — not judged; capture may have stopped",
                     ISO8601::utcSeconds(lastTickAtMs), humanDuration(gapMs));
}

std::string reasonPredatesPause(std::int64_t lastTickAtMs, std::int64_t pauseStartedAtMs, std::int64_t nowMs) {
  return fmt::format("recording is paused (since {}) and the newest signals.sqlite row is from {}, before the pause began (~{} ago) — not judged; "
                     "waiting for Signals to write a current row",
                     ISO8601::utcSeconds(pauseStartedAtMs), ISO8601::utcSeconds(lastTickAtMs), humanDuration(nowMs - lastTickAtMs));
}

std::string humanDuration(std::int64_t ms) {
  const auto seconds = ms / 1000;
  if (seconds < 60) return tr("{}s", seconds);
  if (seconds < 3600) return tr("{}m", seconds / 60);
  const auto hours = seconds / 3600, minutes = seconds % 3600 / 60;
  return minutes == 0 ? tr("{}h", hours) : tr("{}h {}m", hours, minutes);
}

}  // namespace halvo::SignalsStaleness
