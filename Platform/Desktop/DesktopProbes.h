#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Platform/Desktop/DesktopFacts.h"

namespace halvo {

/// What is on this person's desktop now. Every operation answers within a second and never throws: what can't be told is absent, and the
/// implementation says so once in its log. One caller at a time.
class DesktopProbes {
 public:
  virtual ~DesktopProbes() = default;

  /// The application that has the focus; named `FrontmostApp::lockedName` while the session is locked; absent when nothing has the focus.
  virtual std::optional<FrontmostApp> frontmostApp() = 0;
  /// The windows on the screen, front to back; absent when they can't be listed, which is not the same as none.
  virtual std::optional<std::vector<WindowInfo>> windowList() = 0;
  virtual IdleSeconds idleSeconds() = 0;
  virtual std::optional<Point> mouseLocation() = 0;
  /// Whether a laptop's lid is shut; absent on a machine without one.
  virtual std::optional<bool> clamshellClosed() = 0;
  virtual SessionState sessionState() = 0;
  /// The active tab of the first running browser that shows one, the frontmost browser before the others.
  virtual std::optional<BrowserTab> browserTab(const std::optional<std::string>& frontmostBrowser) = 0;
  virtual BatteryInfo batteryInfo() = 0;
  virtual BatteryTelemetry batteryTelemetry() = 0;

  /// All of the above, of one moment, for little more than the price of one of them.
  virtual DesktopSample sample() = 0;
};

}  // namespace halvo
