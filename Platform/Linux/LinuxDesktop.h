#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "CaptureShared/Foundation/Environment.h"
#include "CaptureShared/Foundation/Log.h"
#include "Platform/Desktop/DesktopProbes.h"
#include "Platform/Linux/LinuxPower.h"
#include "Platform/Linux/MediaPlayers.h"
#include "Platform/Linux/MessageBus.h"
#include "Platform/Linux/SessionWatch.h"
#include "Platform/Linux/XDesktopReader.h"

namespace halvo {

/// A Linux desktop under X11: what the X server, the session bus, logind, UPower and the kernel tell, as one set of probes.
class LinuxDesktop : public DesktopProbes {
 public:
  struct Options {
    std::optional<std::string> display = {};            ///< as in ":0"; absent: no display
    std::optional<std::string> sessionBusAddress = {};  ///< absent: the environment's own
    std::optional<std::string> systemBusAddress = {};
    std::optional<std::string> sessionID = {};  ///< the login session to watch; absent: the account's session that has a seat
    std::filesystem::path sys = "/sys";
    std::function<std::int64_t()> nowMs = {};  ///< milliseconds since the epoch; required
    double busSettleSec = 0.5;                 ///< how long the first reading may wait for the services' first answers
    LogSink log = {};

    /// As a process environment has them: DISPLAY, XDG_SESSION_ID; the buses by the environment's own rules.
    static Options from(const Environment& environment, std::function<std::int64_t()> nowMs, LogSink log);
  };

  explicit LinuxDesktop(Options options);

  std::optional<FrontmostApp> frontmostApp() override { return sample().frontmostApp; }
  std::optional<std::vector<WindowInfo>> windowList() override { return sample().windows; }
  IdleSeconds idleSeconds() override { return windows_.read().idle; }
  std::optional<Point> mouseLocation() override { return windows_.read().pointer; }
  std::optional<bool> clamshellClosed() override;
  SessionState sessionState() override { return sample().session; }
  std::optional<BrowserTab> browserTab(const std::optional<std::string>& frontmostBrowser) override;
  BatteryInfo batteryInfo() override { return power_.batteryInfo(); }
  BatteryTelemetry batteryTelemetry() override { return power_.telemetry(); }
  DesktopSample sample() override;

  /// The media players on the same session bus.
  NowPlaying& nowPlaying() { return players_; }
  /// Power and warmth from the same readings.
  PowerSource& powerSource() { return power_; }

 private:
  void pump();
  std::optional<bool> lidClosed() const;
  SessionState session(const XFacts& facts);

  Options options_;
  MessageBus sessionBus_, systemBus_;
  ScreenSaverWatch savers_;
  LoginWatch login_;
  MediaPlayers players_;
  LinuxPower power_;
  XDesktopReader windows_;
  bool isSettled_ = false;
  std::optional<std::int64_t> lidAskedMs_;
  std::optional<std::int64_t> lockAskedMs_;  ///< when a lock that nobody confirms was first seen asked for
  bool wasCovered_ = false;
};

}  // namespace halvo
