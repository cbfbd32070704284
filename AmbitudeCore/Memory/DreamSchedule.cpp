#include "AmbitudeCore/Memory/DreamSchedule.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>

#include "AmbitudeCore/Folds/TimedTicks.h"

namespace halvo::DreamSchedule {

namespace {
constexpr std::string_view lockScreen = "loginwindow";  // what the sampler writes while the session is locked

std::int64_t msSince(std::int64_t thenMs, std::int64_t nowMs) { return std::max<std::int64_t>(0, nowMs - thenMs); }
}  // namespace

Decision evaluate(const Snapshot& snapshot) {
  if (snapshot.pendingPeriodCount < 1) return Hold{"no pending periods -- memory is up to date"};
  if (snapshot.lastPassEndedAtMs) {
    const auto ms = msSince(*snapshot.lastPassEndedAtMs, snapshot.asOfMs);
    if (ms < minimumIntervalBetweenPasses * 1000) return Hold{fmt::format("last pass ended {} min ago", ms / 60'000)};
  }
  if (snapshot.presence == Presence::present) return Hold{"he's at the machine -- dreaming can wait for a locked screen"};
  if (snapshot.presence == Presence::unknown && snapshot.latestEventAtMs) {
    const auto ms = msSince(*snapshot.latestEventAtMs, snapshot.asOfMs);
    if (ms < unknownPresenceQuietInterval * 1000)
      return Hold{fmt::format("no presence signal and the log was active {} min ago", ms / 60'000)};
  }
  return Dream{snapshot.pendingPeriodCount};
}

Presence presence(std::span<const ClassifierTick> ticks, std::int64_t asOfMs) {
  const auto newest = TimedTicks::newest(ticks, std::numeric_limits<std::int64_t>::max());
  if (!newest || asOfMs - newest->tsMs > tickStalenessThresholdSec * 1000) return Presence::unknown;
  return newest->tick->frontmostApp == lockScreen ? Presence::away : Presence::present;
}

}  // namespace halvo::DreamSchedule
