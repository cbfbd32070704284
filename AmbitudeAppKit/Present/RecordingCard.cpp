#include "AmbitudeAppKit/Present/RecordingCard.h"

#include "AmbitudeAppKit/AgentControl/SidebarHealthStrip.h"
#include "AmbitudeAppKit/Stores/Health.h"
#include "CaptureShared/Recording/Supervision/ComponentActivity.h"

namespace halvo {

RecordingCard RecordingCard::of(const Moment& moment) {
  const auto& controls = moment.controls;
  RecordingCard card{.isPaused = controls.isPaused(moment.nowMs), .isWarning = controls.isUnreadable, .quality = controls.quality};
  if (card.isPaused) {
    card.line = "Recording " + controls.words(moment.nowMs, moment.calendar);
    return card;
  }
  const auto secondsSince = [&](std::int64_t ms) { return static_cast<double>(moment.nowMs - ms) / 1000; };
  const auto isFresh = [&](std::optional<std::int64_t> ms) { return ms && secondsSince(*ms) <= ComponentHealth::silentAfter; };
  card.isWarning = !isFresh(moment.lastLifeMs) && !isFresh(moment.controlledMs);
  const auto* but = card.isWarning ? ", but " : "; ";
  if (!moment.lastFrameMs) {
    card.line = std::string("Not paused") + but + "nothing has been recorded yet";
    return card;
  }
  const auto* now = isFresh(moment.lastFrameMs)  ? "Recording"
                    : isFresh(moment.lastLifeMs) ? "Not recording while the screen is locked"
                                                 : "Not paused";
  card.line = std::string(now) + but + "the last frame came " + SidebarHealthStrip::brief(secondsSince(*moment.lastFrameMs)) + " ago";
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
