#pragma once

#include <optional>
#include <string>
#include <vector>

#include "CaptureShared/Privacy/Denylist.h"
#include "CaptureShared/Privacy/OnScreenWindowRecord.h"

/// Whether an excluded app can be seen in a picture about to be taken.
namespace halvo::OnScreenWindowVisibility {

struct Scene {
  std::vector<OnScreenWindowRecord> windows = {};  ///< front to back
  ScreenBounds captured = {};
  std::optional<std::string> frontmostName = {};
  std::optional<std::string> frontmostBundleId = {};
};

/// The first app of `denylist` with a window in front of the frontmost app's own that shares an area with the captured rectangle;
/// absent when there is none. The look stops at the frontmost app's first window, told by name or identifier: nothing behind that one
/// shows.
std::optional<Denylist::AppIdentity> deniedAppVisibleOverCapturedBounds(const Scene& scene, const Denylist& denylist);

}  // namespace halvo::OnScreenWindowVisibility
