#include "CaptureShared/Recording/Supervision/ComponentHealth.h"

#include <algorithm>

#include "CaptureShared/Foundation/Translation.h"

namespace halvo::ComponentHealth {

std::string displayName(Component component) {
  switch (component) {
    case Component::capture: return tr("Capture");
    case Component::classifier: return tr("Classifier");
    case Component::coach: return tr("Coach");
  }
  return {};
}

std::string whatItDoes(Component component) {
  switch (component) {
    case Component::capture: return tr("Recording your screen");
    case Component::classifier: return tr("Reading what's on it");
    case Component::coach: return tr("Deciding whether to speak");
  }
  return {};
}

Status status(const Moment& moment) {
  if (moment.supervision == Supervision::offByChoice) return OffByChoice{};
  if (!moment.lastActivityMs) return Silent{.quietFor = silentAfter};
  const double quietFor = static_cast<double>(moment.nowMs - *moment.lastActivityMs) / 1000;
  if (quietFor > silentAfter) return Silent{.lastActivityMs = moment.lastActivityMs, .quietFor = quietFor};
  if (moment.pause) return Paused{*moment.pause};
  return Working{moment.lastActivityMs};
}

std::optional<std::pair<Component, Status>> worstFault(std::span<const std::pair<Component, Status>> statuses) {
  for (const auto component : {Component::capture, Component::classifier, Component::coach})
    for (const auto& entry : statuses)
      if (entry.first == component && isFault(entry.second)) return entry;
  return std::nullopt;
}

bool capturedForcedByStaleSignals(const StaleSignals& facts) {
  return facts.component == Component::capture && facts.signalsAreKnown && !facts.deliberatelyRemoved;
}

}  // namespace halvo::ComponentHealth
