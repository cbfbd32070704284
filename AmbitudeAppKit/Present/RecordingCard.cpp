#include "AmbitudeAppKit/Present/RecordingCard.h"

#include "AmbitudeAppKit/AgentControl/SidebarHealthStrip.h"
#include "AmbitudeAppKit/Stores/Health.h"
#include "CaptureShared/Foundation/Translation.h"
#include "CaptureShared/Recording/Supervision/ComponentActivity.h"

namespace halvo {

RecordingCard RecordingCard::of(const Moment& moment) {
  const auto& controls = moment.controls;
  RecordingCard card{.isPaused = controls.isPaused(moment.nowMs), .isWarning = controls.isUnreadable, .quality = controls.quality};
  if (card.isPaused) {
    card.line = tr("Recording {}", controls.words(moment.nowMs, moment.calendar));
    return card;
  }
  const auto secondsSince = [&](std::int64_t ms) { return static_cast<double>(moment.nowMs - ms) / 1000; };
  const auto isFresh = [&](std::optional<std::int64_t> ms) { return ms && secondsSince(*ms) <= ComponentHealth::silentAfter; };
  card.isWarning = !isFresh(moment.lastLifeMs) && !isFresh(moment.controlledMs);
  const auto line = [&](const std::string& now, const std::string& last) {
    return card.isWarning ? tr("{}, but {}", now, last) : tr("{}; {}", now, last);
  };
  if (!moment.lastFrameMs) {
    card.line = line(tr("Not paused"), tr("nothing has been recorded yet"));
    return card;
  }
  card.line = line(isFresh(moment.lastFrameMs)  ? tr("Recording")
                   : isFresh(moment.lastLifeMs) ? tr("Not recording while the screen is locked")
                                                : tr("Not paused"),
                   tr("the last frame came {} ago", SidebarHealthStrip::brief(secondsSince(*moment.lastFrameMs))));
  return card;
}

RecordingCard RecordingCard::read(const std::filesystem::path& dataRoot, std::int64_t nowMs, const Calendar& calendar) {
  const auto controls = RecordingControls::read(dataRoot);
  return of({.controls = controls,
             .lastFrameMs = ComponentActivity::last(ComponentHealth::Component::capture, dataRoot),
             .lastLifeMs = Health::captureActivityMs(dataRoot),
             .controlledMs = Health::controlledAtMs(dataRoot, controls),
             .nowMs = nowMs,
             .calendar = calendar});
}

}  // namespace halvo
