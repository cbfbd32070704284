#include "Platform/Linux/LinuxDesktop.h"

#include <algorithm>

#include <unistd.h>

#include "Platform/Linux/BrowserTitles.h"

namespace halvo {
namespace {

/// A lid that nobody announces is asked for this often.
constexpr std::int64_t lidPeriodMs = 10'000;
/// A lock that was asked for and that covers nothing after this long was not carried out.
constexpr std::int64_t lockGraceMs = 5'000;

/// Whether the foremost window is one that no window manager manages and that hides every other: what a bare screen locker puts up.
bool isCovered(const std::vector<WindowInfo>& windows) {
  if (windows.empty() || windows.front().layer != WindowInfo::layerPopUp) return false;
  const auto& cover = windows.front().bounds;
  return std::all_of(windows.begin() + 1, windows.end(), [&](const WindowInfo& window) {
    const auto& behind = window.bounds;
    return behind.x >= cover.x && behind.y >= cover.y && behind.x + behind.width <= cover.x + cover.width &&
           behind.y + behind.height <= cover.y + cover.height;
  });
}

}  // namespace

LinuxDesktop::Options LinuxDesktop::Options::from(const Environment& environment, std::function<std::int64_t()> nowMs, LogSink log) {
  return {.display = value(environment, "DISPLAY"),
          .sessionID = value(environment, "XDG_SESSION_ID"),
          .nowMs = std::move(nowMs),
          .log = std::move(log)};
}

LinuxDesktop::LinuxDesktop(Options options)
    : options_(std::move(options)),
      sessionBus_({.isSystemBus = false, .address = options_.sessionBusAddress, .log = options_.log}),
      systemBus_({.isSystemBus = true, .address = options_.systemBusAddress, .log = options_.log}),
      savers_(sessionBus_),
      login_(systemBus_, {.sessionID = options_.sessionID, .uid = ::getuid()}),
      players_(sessionBus_),
      power_(systemBus_, {.sys = options_.sys, .nowMs = options_.nowMs}),
      windows_({.display = options_.display, .log = options_.log}) {}

void LinuxDesktop::pump() {
  if (!isSettled_) {
    sessionBus_.settle(options_.busSettleSec);
    systemBus_.settle(options_.busSettleSec);
    isSettled_ = true;
  }
  sessionBus_.pump();
  systemBus_.pump();
}

std::optional<bool> LinuxDesktop::lidClosed() const {
  const auto lid = power_.lid();
  if (lid.isPresent == false) return std::nullopt;  // logind says "open" on a machine without a lid
  if (lid.isPresent == true && lid.isClosed) return lid.isClosed;
  return login_.isLidClosed();
}

std::optional<bool> LinuxDesktop::clamshellClosed() {
  pump();
  return lidClosed();
}

SessionState LinuxDesktop::session(const XFacts& facts) {
  SessionState state{.screensaverActive = savers_.isActive()};
  if (const auto locked = login_.isLocked()) state.screenLocked = *locked;
  if (state.screensaverActive) state.screenLocked = state.screenLocked.value_or(false) || *state.screensaverActive;

  // Bare lockers confirm a lock nowhere: what they put over the screen has to.
  if (!login_.lockIsAskedFor()) {
    lockAskedMs_.reset();
    wasCovered_ = false;
    return state;
  }
  const auto nowMs = options_.nowMs();
  if (!lockAskedMs_) lockAskedMs_ = nowMs;
  const bool covered = facts.windows && isCovered(*facts.windows);
  if (covered) state.screenLocked = true;
  if (!covered && (wasCovered_ || nowMs - *lockAskedMs_ > lockGraceMs || nowMs < *lockAskedMs_)) login_.forgetLockRequest();
  wasCovered_ = covered;
  return state;
}

DesktopSample LinuxDesktop::sample() {
  pump();
  const auto nowMs = options_.nowMs();
  if (!power_.lid().isPresent && (!lidAskedMs_ || nowMs < *lidAskedMs_ || nowMs - *lidAskedMs_ >= lidPeriodMs)) {
    if (lidAskedMs_) login_.refreshLid();  // the first answer came with the connection
    lidAskedMs_ = nowMs;
  }
  auto facts = windows_.read();
  DesktopSample now{.idle = facts.idle,
                    .mouse = facts.pointer,
                    .clamshellClosed = lidClosed(),
                    .session = session(facts),
                    .battery = power_.batteryInfo(),
                    .batteryTelemetry = power_.telemetry()};
  if (facts.windows)
    now.browserTab = BrowserTitles::activeTab(*facts.windows, facts.frontmostApp ? std::optional(facts.frontmostApp->name) : std::nullopt);
  now.windows = std::move(facts.windows);
  now.frontmostApp = now.session.screenLocked == true ? FrontmostApp{.name = FrontmostApp::lockedName} : std::move(facts.frontmostApp);
  return now;
}

std::optional<BrowserTab> LinuxDesktop::browserTab(const std::optional<std::string>& frontmostBrowser) {
  const auto windows = windows_.read().windows;
  return windows ? BrowserTitles::activeTab(*windows, frontmostBrowser) : std::nullopt;
}

}  // namespace halvo
