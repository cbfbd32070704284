#include "AmbitudeCore/Classifier/LiveWindowGuard.h"

#include "CaptureShared/Privacy/OnScreenWindowVisibility.h"

namespace halvo::LiveWindowGuard {

std::optional<ContentWithheldReason> byName(const Denylist& denylist, const std::optional<std::string>& app,
                                            const std::optional<std::string>& bundleId) {
  if (denylist.excludes(app, bundleId)) return ContentWithheldReason::frontmostAppDenylisted;
  return std::nullopt;
}

Answer look(DesktopProbes& probes, const Denylist& denylist, const ScreenBounds& captured, const std::optional<std::string>& expectedApp) {
  const auto now = probes.sample();
  const auto front = now.frontmostApp;
  if (front && byName(denylist, front->name, front->bundleID)) return Withheld{ContentWithheldReason::frontmostAppDenylisted};
  if (!now.windows) return Unsure{"the windows on the screen can't be listed"};

  OnScreenWindowVisibility::Scene scene{.captured = captured};
  if (front) {
    scene.frontmostName = front->name;
    scene.frontmostBundleId = front->bundleID;
  }
  for (const auto& window : *now.windows) {
    const OnScreenWindowRecord record{
        .appName = window.ownerName,
        .bundleId = window.bundleID,
        .bounds = {.x = window.bounds.x, .y = window.bounds.y, .width = window.bounds.width, .height = window.bounds.height}};
    // A dialog or a bubble of the app in front hides only what is behind itself. The window that is captured covers the whole rectangle,
    // and only there does the look end.
    const bool isFronts = front && (window.ownerName == front->name || (front->bundleID && window.bundleID == front->bundleID));
    if (isFronts && !record.bounds.contains(captured)) continue;
    scene.windows.push_back(record);
  }
  if (OnScreenWindowVisibility::deniedAppVisibleOverCapturedBounds(scene, denylist))
    return Withheld{ContentWithheldReason::anotherDenylistedAppWindowVisible};
  if (!front || front->name != expectedApp) return Unsure{"another app has come to the front"};
  return Clear{};
}

}  // namespace halvo::LiveWindowGuard
