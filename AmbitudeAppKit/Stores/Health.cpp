#include "AmbitudeAppKit/Stores/Health.h"

#include <algorithm>
#include <array>

#include "AmbitudeAppKit/AgentControl/AgentUnitFiles.h"
#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Foundation/Translation.h"
#include "CaptureShared/Recording/Supervision/CaptureFaultStore.h"
#include "CaptureShared/Recording/Supervision/ComponentActivity.h"
#include "CaptureShared/Signals/SignalsNotes.h"
#include "CaptureShared/Signals/SignalsReader.h"
#include "Platform/Desktop/DesktopFacts.h"

namespace halvo::Health {

namespace {

using ComponentHealth::Component;

/// The newest sample's time, when it says that the session is locked.
std::optional<std::int64_t> lockedAtMs(const std::filesystem::path& root) {
  std::error_code none;
  if (!std::filesystem::exists(DataPaths::signalsDB(root), none)) return std::nullopt;
  try {
    const auto tick = SignalsReader(DataPaths::signalsDB(root)).latestTick();
    const bool isLocked = tick && tick->frontmostApp && Text::equalsIgnoringCase(*tick->frontmostApp, FrontmostApp::lockedName);
    return isLocked ? std::optional(tick->tsMs) : std::nullopt;
  } catch (const SignalsReaderError&) {
    return std::nullopt;
  }
}

/// When the classifier, which watches the sampler, last saw a row of its; absent unless it says that there are no more.
std::optional<std::int64_t> samplesEndedAtMs(const std::filesystem::path& root, std::int64_t nowMs) {
  const auto note = SignalsStaleNoteStore::read(SignalsStaleNoteStore::url(root));
  return note && SignalsStaleNoteStore::isCurrent(*note, nowMs) ? std::optional(note->lastGoodTickAtMs) : std::nullopt;
}

bool isDeliberatelyRemoved(const std::filesystem::path& root) {
  constexpr auto marginMs = static_cast<std::int64_t>(ComponentHealth::expectedCadence * 1000);
  const auto intent = CaptureRemovalIntentStore::read(CaptureRemovalIntentStore::url(root));
  return intent && !CaptureRemovalIntentStore::isSuperseded(*intent, ComponentActivity::last(Component::capture, root), marginMs);
}

ComponentHealth::Status captureStatus(const std::filesystem::path& root, const RecordingControls& controls, std::int64_t nowMs) {
  if (controls.isPaused(nowMs)) return ComponentHealth::status({.supervision = ComponentHealth::Supervision::offByChoice, .nowMs = nowMs});
  if (const auto endedAtMs = samplesEndedAtMs(root, nowMs);
      ComponentHealth::capturedForcedByStaleSignals({.component = Component::capture,
                                                     .signalsAreKnown = endedAtMs.has_value(),
                                                     .deliberatelyRemoved = isDeliberatelyRemoved(root)}))
    return ComponentHealth::Silent{.lastActivityMs = endedAtMs, .quietFor = static_cast<double>(nowMs - *endedAtMs) / 1000};
  return ComponentHealth::status({.lastActivityMs = std::max(captureActivityMs(root), controlledAtMs(root, controls)), .nowMs = nowMs});
}

ComponentHealth::Status statusOf(Component component, const std::filesystem::path& root, const RecordingControls& controls, std::int64_t nowMs) {
  if (component == Component::capture) return captureStatus(root, controls, nowMs);
  return ComponentHealth::status({.component = component, .lastActivityMs = ComponentActivity::last(component, root), .nowMs = nowMs});
}

BackgroundAgent agentOf(Component component) {
  switch (component) {
    case Component::capture: return BackgroundAgent::captureSupervisor;
    case Component::classifier: return BackgroundAgent::classifier;
    case Component::coach: return BackgroundAgent::coachDriver;
  }
  return {};
}

/// Silence of an agent that is not installed is the person's wish. Whatever started one, what works is at work.
ComponentHealth::Status unlessNotInstalled(ComponentHealth::Status status, Component component, const std::filesystem::path& root,
                                           const Environment& environment, std::int64_t nowMs) {
  if (AgentUnitFiles::isInstalled(agentOf(component), environment)) return status;
  // The recorder's last work may be from the moment before its removal.
  if (!ComponentHealth::isFault(status) && !(component == Component::capture && isDeliberatelyRemoved(root))) return status;
  return ComponentHealth::status({.component = component, .supervision = ComponentHealth::Supervision::offByChoice, .nowMs = nowMs});
}

std::optional<Component> componentOf(BackgroundAgent agent) {
  switch (agent) {
    case BackgroundAgent::captureSupervisor: return Component::capture;
    case BackgroundAgent::classifier: return Component::classifier;
    case BackgroundAgent::coachDriver: return Component::coach;
    case BackgroundAgent::consolidate:
    case BackgroundAgent::localModel: return std::nullopt;
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::int64_t> captureActivityMs(const std::filesystem::path& root) {
  // An absent optional is below every value.
  return std::max(ComponentActivity::last(Component::capture, root), lockedAtMs(root));
}

std::optional<std::int64_t> controlledAtMs(const std::filesystem::path& root, const RecordingControls& controls) {
  return std::max(ComponentActivity::modificationDate(RecordingControls::path(root)), controls.pausedUntilMs);
}

SidebarHealthStrip::State look(const Environment& environment, std::int64_t nowMs, const Calendar& calendar) {
  const bool hasRoot = DataPaths::isDataRootAvailable();
  const auto root = DataPaths::dataRoot();
  const auto controls = RecordingControls::read(root);
  std::array<std::pair<Component, ComponentHealth::Status>, 3> components;
  std::size_t i = 0;
  for (const auto component : {Component::capture, Component::classifier, Component::coach})
    components[i++] = {component, unlessNotInstalled(statusOf(component, root, controls, nowMs), component, root, environment, nowMs)};
  std::optional<SidebarHealthStrip::RecordingPause> pause;
  if (controls.isPaused(nowMs)) pause = {.words = controls.words(nowMs, calendar), .isUnreadable = controls.isUnreadable};
  return SidebarHealthStrip::state({.dataRootTrouble = hasRoot ? std::nullopt : std::optional(DataPaths::dataRootUnavailableReason()),
                                    .fault = CaptureFaultStore::read(CaptureFaultStore::path(environment)),
                                    .recordingPause = std::move(pause),
                                    .components = components,
                                    .nowMs = nowMs});
}

std::map<BackgroundAgent, std::string> complaints(std::span<const BackgroundAgentState> states, const std::filesystem::path& root,
                                                  const Environment& environment, std::int64_t nowMs, const Calendar& calendar) {
  const auto controls = RecordingControls::read(root);
  std::map<BackgroundAgent, std::string> words;
  for (const auto& state : states) {
    const auto component = componentOf(state.agent);
    if (!component || !std::holds_alternative<BackgroundAgentState::Running>(state.runState)) continue;
    const auto fault = component == Component::capture ? CaptureFaultStore::read(CaptureFaultStore::path(environment)) : std::nullopt;
    const auto status = statusOf(*component, root, controls, nowMs);
    const auto* silent = std::get_if<ComponentHealth::Silent>(&status);
    if (component == Component::capture && controls.isPaused(nowMs))
      words[state.agent] = tr("recording {}", controls.words(nowMs, calendar));
    else if (fault && !CaptureFaultStore::isStale(*fault, nowMs))
      words[state.agent] = CaptureFault::headline(fault->kind);
    else if (silent)
      words[state.agent] = silent->lastActivityMs ? tr("has written nothing for {}", SidebarHealthStrip::brief(silent->quietFor))
                                                  : tr("has not been at work yet");
  }
  return words;
}

std::map<BackgroundAgent, std::string> complaints(std::span<const BackgroundAgentState> states, const Environment& environment,
                                                  std::int64_t nowMs) {
  if (!DataPaths::isDataRootAvailable()) {
    std::map<BackgroundAgent, std::string> words;
    for (const auto& state : states)
      if (componentOf(state.agent) && std::holds_alternative<BackgroundAgentState::Running>(state.runState))
        words[state.agent] = DataPaths::dataRootUnavailableReason();
    return words;
  }
  return complaints(states, DataPaths::dataRoot(), environment, nowMs);
}

}  // namespace halvo::Health
