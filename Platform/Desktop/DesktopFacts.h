#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// What can be seen of a desktop at one moment, as plain values. Absent always means "could not be told", never "no".
namespace halvo {

/// A rectangle in pixels of the whole desktop, its origin at the top left.
struct Rect {
  double x = 0, y = 0, width = 0, height = 0;
  bool operator==(const Rect&) const = default;
};

/// A point in pixels of the whole desktop.
struct Point {
  double x = 0, y = 0;
  bool operator==(const Point&) const = default;
};

/// The application that has the focus.
struct FrontmostApp {
  /// The name reported for as long as the session is locked: nobody is at any application then.
  static constexpr const char* lockedName = "loginwindow";

  std::string name;                          ///< display name
  std::optional<std::string> bundleID = {};  ///< the application's identifier, as in "org.gnome.TextEditor"
  std::optional<int> pid = {};
  bool operator==(const FrontmostApp&) const = default;
};

/// One window that is on the screen.
struct WindowInfo {
  static constexpr int layerNormal = 0;
  static constexpr int layerDock = 25;    ///< panels and docks
  static constexpr int layerPopUp = 101;  ///< menus, tooltips and other windows that the window manager doesn't manage

  std::string ownerName;
  std::optional<std::string> bundleID = {};
  std::optional<int> ownerPID = {};
  std::string title;  ///< valid UTF-8; empty when the window has none
  int layer = layerNormal;
  Rect bounds = {};  ///< the content, without the window manager's frame
  bool isFullscreen = false;
  bool operator==(const WindowInfo&) const = default;
};

/// Seconds since the last input of each kind.
struct IdleSeconds {
  std::optional<double> key = {}, mouse = {}, any = {};
  bool operator==(const IdleSeconds&) const = default;
};

struct SessionState {
  std::optional<bool> screensaverActive = {}, screenLocked = {};
  bool operator==(const SessionState&) const = default;
};

/// The active tab of one browser.
struct BrowserTab {
  std::string browser;  ///< the browser's display name, as `WindowInfo::ownerName` has it
  std::string title;
  std::optional<std::string> url = {};
  bool operator==(const BrowserTab&) const = default;
};

/// Charge and mains.
struct BatteryInfo {
  std::optional<int> percent = {};     ///< 0…100
  std::optional<bool> pluggedIn = {};  ///< true on mains
  bool operator==(const BatteryInfo&) const = default;
};

/// The battery's own figures, where the machine gives them.
struct BatteryTelemetry {
  std::optional<std::int64_t> voltageMV = {};
  std::optional<std::int64_t> instantAmperageMA = {};      ///< below 0 while the battery drains
  std::optional<std::int64_t> updateTimeS = {};            ///< seconds since the epoch at which these figures were read
  std::optional<std::int64_t> accumulatedSystemLoad = {};  ///< a running sum that few machines keep
  std::optional<std::int64_t> systemLoadAccumulatorCount = {};
  std::optional<std::int64_t> systemPowerInMW = {};  ///< what the mains supply delivers
  std::optional<std::int64_t> fullChargeCapacityMAh = {};
  bool operator==(const BatteryTelemetry&) const = default;
};

/// Everything that `DesktopProbes::sample` reads, of one moment.
struct DesktopSample {
  std::optional<FrontmostApp> frontmostApp = {};
  std::optional<std::vector<WindowInfo>> windows = {};  ///< front to back; absent when they can't be listed
  IdleSeconds idle = {};
  std::optional<Point> mouse = {};
  std::optional<bool> clamshellClosed = {};
  SessionState session = {};
  std::optional<BrowserTab> browserTab = {};
  BatteryInfo battery = {};
  BatteryTelemetry batteryTelemetry = {};
  bool operator==(const DesktopSample&) const = default;
};

}  // namespace halvo
