#include "AmbitudeAppKit/Present/RecordingCard.h"

#include "AmbitudeAppKit/AgentControl/SidebarHealthStrip.h"
#include "CaptureShared/Recording/Supervision/ComponentActivity.h"

namespace halvo {

RecordingCard RecordingCard::of(const Moment& moment) {
  const auto& controls = moment.controls;
  RecordingCard card{.isPaused = controls.isPaused(moment.nowMs), .isWarning = controls.isUnreadable, .quality = controls.quality};
  if (card.isPaused) {
    card.line = "Recording " + controls.words(moment.nowMs, moment.calendar);
    return card;
  }
  if (!moment.lastFrameMs) {
    card.line = "Not paused, but nothing has been recorded yet";
    card.isWarning = true;
    return card;
  }
  const auto quietSec = static_cast<double>(moment.nowMs - *moment.lastFrameMs) / 1000;
  card.isWarning = quietSec > ComponentHealth::silentAfter;
  const auto brief = SidebarHealthStrip::brief(quietSec);
  card.line = card.isWarning ? "Not paused, but the last frame came " + brief + " ago" : "Recording; the last frame came " + brief + " ago";
  return card;
}

RecordingCard RecordingCard::read(const std::filesystem::path& dataRoot, std::int64_t nowMs, const Calendar& calendar) {
  return of({.controls = RecordingControls::read(dataRoot),
             .lastFrameMs = ComponentActivity::last(ComponentHealth::Component::capture, dataRoot),
             .nowMs = nowMs,
             .calendar = calendar});
}

}  // namespace halvo
