#include "AmbitudeAppKit/AgentControl/SidebarHealthStrip.h"

#include <algorithm>

#include "CaptureShared/Foundation/Translation.h"
#include "CaptureShared/Recording/Supervision/CaptureFaultStore.h"
#include "CaptureShared/Signals/SignalsStaleness.h"

namespace halvo::SidebarHealthStrip {

namespace {

using namespace ComponentHealth;

State warning(std::string title, std::string detail) {
  return {.symbol = "dialog-warning-symbolic", .title = std::move(title), .detail = std::move(detail), .tone = Tone::warning};
}

State faultState(const CaptureFault& fault, std::int64_t nowMs) {
  const auto since = tr("for {}", brief(static_cast<double>(nowMs - fault.sinceMs) / 1000));
  return warning(CaptureFault::headline(fault.kind), fault.detail.empty() ? since : since + "; " + fault.detail);
}

State silentState(Component component, const Silent& silent) {
  const auto what = whatItDoes(component);
  if (!silent.lastActivityMs) return warning(tr("{} has not been at work yet", displayName(component)), what);
  return warning(tr("{} is silent", displayName(component)), tr("{}: nothing for {}", what, brief(silent.quietFor)));
}

State pausedState(const Pause& pause, std::int64_t nowMs) {
  const auto heldSec = pause.sinceMs ? std::optional(static_cast<double>(nowMs - *pause.sinceMs) / 1000) : std::nullopt;
  auto detail = heldSec ? tr("for {}", brief(*heldSec)) : std::string();
  // Nobody is on a call that long: the person should look whether one is really on.
  if (heldSec.value_or(0) > Pause::longHold) return warning(tr("Still on hold for a call"), std::move(detail));
  return {.symbol = "media-playback-pause-symbolic", .title = tr("On hold for a call"), .detail = std::move(detail)};
}

std::string names(std::span<const std::pair<Component, Status>> components, auto&& isMeant) {
  std::string list;
  for (const auto& [component, status] : components)
    if (isMeant(status)) list += (list.empty() ? "" : ", ") + displayName(component);
  return list;
}

/// The worst of what the components do; absent while nothing is wrong with them and no call is on.
std::optional<State> componentState(const Facts& facts) {
  if (const auto worst = worstFault(facts.components)) return silentState(worst->first, std::get<Silent>(worst->second));
  for (const auto& [component, status] : facts.components)
    if (const auto* paused = std::get_if<Paused>(&status)) return pausedState(paused->pause, facts.nowMs);
  return std::nullopt;
}

}  // namespace

State state(const Facts& facts) {
  if (facts.dataRootTrouble) return warning(tr("Recording nothing"), *facts.dataRootTrouble);
  const auto& pause = facts.recordingPause;
  if (pause && pause->isUnreadable) return warning(tr("Recording {}", pause->words), tr("pause it anew, or resume it"));
  // What stopped the recorder before the person did is no matter while they want none.
  if (!pause && facts.fault && !CaptureFaultStore::isStale(*facts.fault, facts.nowMs)) return faultState(*facts.fault, facts.nowMs);
  if (auto state = componentState(facts)) {
    if (pause) state->detail += (state->detail.empty() ? "" : "; ") + tr("recording {}", pause->words);
    return *state;
  }
  const auto off = names(facts.components, [](const Status& status) { return std::holds_alternative<OffByChoice>(status); });
  const auto on = names(facts.components, [](const Status& status) { return !std::holds_alternative<OffByChoice>(status); });
  if (pause)
    return {.symbol = "media-playback-pause-symbolic",
            .title = tr("Recording {}", pause->words),
            .detail = on.empty() ? tr("by choice") : tr("by choice; at work: {}", on)};
  if (on.empty()) return {.symbol = "system-shutdown-symbolic", .title = tr("Off"), .detail = tr("not installed")};
  return {.symbol = "emblem-ok-symbolic", .title = tr("Working"), .detail = off.empty() ? on : tr("{}; not installed: {}", on, off)};
}

std::string brief(double seconds) {
  return SignalsStaleness::humanDuration(static_cast<std::int64_t>(std::max(0.0, seconds) * 1000));
}

}  // namespace halvo::SidebarHealthStrip
