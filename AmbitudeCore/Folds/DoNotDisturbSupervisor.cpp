#include "AmbitudeCore/Folds/DoNotDisturbSupervisor.h"

#include <algorithm>

#include "AmbitudeCore/Folds/TimedTicks.h"

namespace halvo::DoNotDisturbSupervisor {

Action evaluate(const Moment& moment) {
  const auto window = DoNotDisturbWindow::latest(moment.events, moment.asOfMs);
  if (!window || !window->isActive(moment.asOfMs)) return Idle{};
  const auto ticks = TimedTicks::within(moment.ticks, window->startMs, moment.asOfMs);
  const auto rest = std::ranges::find_if(ticks, [](const TimedTick& tick) { return tick.tick->state == "BREAK"; });
  if (rest != ticks.end()) return EndNow{DoNotDisturbEndReason::breakTaken, rest->tick->reason};
  const auto& last = moment.lastPatternCheckMs;
  // A check of the future was made before the clock was set back: it says nothing about now.
  const bool isCheckFresh = last && *last <= moment.asOfMs && moment.asOfMs - *last < patternCheckMinIntervalMs;
  if (!window->isBlind() && !ticks.empty() && !isCheckFresh) return RunPatternCheck{};
  return Holding{window->untilMs};
}

}  // namespace halvo::DoNotDisturbSupervisor
