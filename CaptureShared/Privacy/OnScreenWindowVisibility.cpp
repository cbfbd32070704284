#include "CaptureShared/Privacy/OnScreenWindowVisibility.h"

namespace halvo::OnScreenWindowVisibility {

std::optional<Denylist::AppIdentity> deniedAppVisibleOverCapturedBounds(const Scene& scene, const Denylist& denylist) {
  for (const auto& window : scene.windows) {
    const bool sameName = scene.frontmostName && window.appName == *scene.frontmostName;
    const bool sameId = scene.frontmostBundleId && window.bundleId == scene.frontmostBundleId;
    if (sameName || sameId) return std::nullopt;
    if (window.bounds.intersects(scene.captured) && denylist.excludes(window.appName, window.bundleId))
      return Denylist::AppIdentity{.name = window.appName, .bundleId = window.bundleId};
  }
  return std::nullopt;
}

}  // namespace halvo::OnScreenWindowVisibility
