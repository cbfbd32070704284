#include "AmbitudeAppKit/Stores/Health.h"

#include <algorithm>
#include <array>

#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Recording/Supervision/CaptureFaultStore.h"
#include "CaptureShared/Recording/Supervision/ComponentActivity.h"
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

std::optional<std::int64_t> activityMs(Component component, const std::filesystem::path& root) {
  return component == Component::capture ? captureActivityMs(root) : ComponentActivity::last(component, root);
}

}  // namespace

std::optional<std::int64_t> captureActivityMs(const std::filesystem::path& root) {
  // An absent optional is below every value.
  return std::max(ComponentActivity::last(Component::capture, root), lockedAtMs(root));
}

SidebarHealthStrip::State look(const Environment& environment, std::int64_t nowMs) {
  const bool hasRoot = DataPaths::isDataRootAvailable();
  const auto root = DataPaths::dataRoot();
  std::array<std::pair<Component, ComponentHealth::Status>, 3> components;
  std::size_t i = 0;
  for (const auto component : {Component::capture, Component::classifier, Component::coach})
    components[i++] = {component, ComponentHealth::status({.component = component, .lastActivityMs = activityMs(component, root), .nowMs = nowMs})};
  return SidebarHealthStrip::state({.dataRootTrouble = hasRoot ? std::nullopt : std::optional(DataPaths::dataRootUnavailableReason()),
                                    .fault = CaptureFaultStore::read(CaptureFaultStore::path(environment)),
                                    .components = components,
                                    .nowMs = nowMs});
}

}  // namespace halvo::Health
