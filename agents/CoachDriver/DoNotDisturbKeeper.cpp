#include "agents/CoachDriver/DoNotDisturbKeeper.h"

#include "AmbitudeCore/Backends/ModelBackendError.h"
#include "AmbitudeCore/Gate/PatternBreakCheck.h"
#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/Match.h"

namespace halvo {

void DoNotDisturbKeeper::look(const Moment& moment, const std::stop_token& stop) {
  const auto window = DoNotDisturbWindow::latest(moment.events, moment.asOfMs);
  if (!window || DoNotDisturbEndedEvent::isThere(moment.events, *window)) return;
  match(
      DoNotDisturbSupervisor::evaluate(
          {.events = moment.events, .ticks = moment.ticks, .asOfMs = moment.asOfMs, .lastPatternCheckMs = lastPatternCheckMs_}),
      [](const DoNotDisturbSupervisor::Holding&) {},
      [&](const DoNotDisturbSupervisor::EndNow& now) {
        end({.windowStartMs = window->startMs, .reason = now.reason, .detail = now.detail, .asOfMs = moment.asOfMs});
      },
      [&](const DoNotDisturbSupervisor::Idle&) {
        end({.windowStartMs = window->startMs, .reason = DoNotDisturbEndReason::expired, .asOfMs = moment.asOfMs});
      },
      [&](const DoNotDisturbSupervisor::RunPatternCheck&) { checkPattern(moment, *window, stop); });
}

void DoNotDisturbKeeper::checkPattern(const Moment& moment, const DoNotDisturbWindow& window, const std::stop_token& stop) {
  if (!surroundings_.localModel) return;
  try {
    const auto verdict = PatternBreakCheck::evaluate(
        {.window = window, .ticks = moment.ticks, .asOfMs = moment.asOfMs, .calendar = surroundings_.calendar}, *surroundings_.localModel,
        stop);
    if (!verdict) return;  // no call was made
    lastPatternCheckMs_ = moment.asOfMs;
    if (verdict->broken)
      end({.windowStartMs = window.startMs,
           .reason = DoNotDisturbEndReason::patternBroke,
           .detail = verdict->reason.empty() ? std::nullopt : std::optional(verdict->reason),
           .asOfMs = moment.asOfMs});
  } catch (const Cancelled&) {
    throw;
  } catch (const std::exception& error) {
    lastPatternCheckMs_ = moment.asOfMs;
    surroundings_.log("layer3: the pattern check failed, so the window holds: " + describeError(error));
  }
}

}  // namespace halvo
