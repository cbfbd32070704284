#include "Platform/Linux/LinuxDesktop.h"

#include <gtest/gtest.h>
#include <sdbus-c++/sdbus-c++.h>
#include <unistd.h>

#include "tests/support/Eventually.h"
#include "tests/support/PrivateBus.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestWindow.h"
#include "tests/support/XServer.h"

namespace halvo {
namespace {

using test::eventually;
using test::PrivateBus;

constexpr const char* mockInterface = "org.freedesktop.DBus.Mock";
using Properties = std::map<std::string, sdbus::Variant>;

/// A desktop of which only what a test starts exists.
class LinuxDesktopTest : public testing::Test {
 protected:
  LinuxDesktop::Options options() {
    return {.sessionBusAddress = sessionBus.address(),
            .systemBusAddress = systemBus.address(),
            .sys = sys.path(),
            .nowMs = [this] { return nowMs; },
            .log = [this](const std::string& line) { log.push_back(line); }};
  }
  /// Gives a bare service a method that answers a fixed Python expression.
  void addMethod(const char* service, const char* path, const char* interface, const char* method, const char* out, const char* code) {
    sessionBus.proxy(service, path)
        ->callMethod("AddMethod")
        .onInterface(mockInterface)
        .withArguments(std::string(interface), std::string(method), std::string(), std::string(out), std::string(code));
  }
  void startSaver(const char* service, const char* path, bool active) {
    sessionBus.startService(service, path, service);
    addMethod(service, path, service, "GetActive", "b", active ? "ret = True" : "ret = False");
  }
  void emitActive(const char* service, const char* path, bool active) {
    sessionBus.proxy(service, path)
        ->callMethod("EmitSignal")
        .onInterface(mockInterface)
        .withArguments(std::string(service), std::string("ActiveChanged"), std::string("b"),
                       std::vector<sdbus::Variant>{sdbus::Variant(active)});
  }

  PrivateBus sessionBus, systemBus;
  test::TemporaryFolder sys;
  std::int64_t nowMs = 1'700'000'000'000;
  std::vector<std::string> log;
};

TEST_F(LinuxDesktopTest, withNothingThereEverythingIsUnknown) {
  LinuxDesktop desktop(options());
  EXPECT_EQ(desktop.sample(), DesktopSample{});
  EXPECT_EQ(desktop.nowPlaying().fetch(), NowPlaying::Result{});
  EXPECT_EQ(desktop.powerSource().snapshot(), PowerSnapshot{});
  desktop.sample();
  EXPECT_EQ(log.size(), 1u) << "only the missing display, and once";
}

TEST_F(LinuxDesktopTest, aSaverThatIsOnMeansLocked) {
  const test::XServer server;
  test::TestWindow editor(server.display(), {.className = "gedit"});
  editor.activate();
  startSaver("org.xfce.ScreenSaver", "/org/xfce/ScreenSaver", false);
  startSaver("org.gnome.ScreenSaver", "/org/gnome/ScreenSaver", false);
  auto with = options();
  with.display = server.display();
  LinuxDesktop desktop(with);
  ASSERT_TRUE(eventually([&] { return desktop.sample().frontmostApp == FrontmostApp{.name = "gedit"}; }));
  EXPECT_EQ(desktop.sessionState(), (SessionState{.screensaverActive = false, .screenLocked = false}));

  emitActive("org.xfce.ScreenSaver", "/org/xfce/ScreenSaver", true);
  ASSERT_TRUE(eventually([&] { return desktop.sessionState().screenLocked == true; })) << "one of two says so";
  EXPECT_EQ(desktop.frontmostApp(), (FrontmostApp{.name = "loginwindow"}));
  EXPECT_EQ(desktop.sample().windows->size(), 1u);
  emitActive("org.xfce.ScreenSaver", "/org/xfce/ScreenSaver", false);
  EXPECT_TRUE(eventually([&] { return desktop.frontmostApp() == FrontmostApp{.name = "gedit"}; }));

  // Started locked, and then the saver crashes: nobody says "active" any more.
  sessionBus.stopLastService();
  startSaver("org.gnome.ScreenSaver", "/org/gnome/ScreenSaver", true);
  EXPECT_TRUE(eventually([&] { return desktop.sessionState().screenLocked == true; }));
  sessionBus.stopLastService();
  EXPECT_TRUE(eventually([&] { return desktop.sessionState().screenLocked == false; }));
}

TEST_F(LinuxDesktopTest, logindTellsLockAndLid) {
  systemBus.startTemplate("logind", "org.freedesktop.login1");
  auto manager = systemBus.proxy("org.freedesktop.login1", "/org/freedesktop/login1");
  const auto addSession = [&](const char* id, const char* seat, std::uint32_t uid) {
    std::string path;
    manager->callMethod("AddSession")
        .onInterface(mockInterface)
        .withArguments(std::string(id), std::string(seat), uid, std::string("someone"), true)
        .storeResultsTo(path);
    return path;
  };
  addSession("another", "seat1", ::getuid() + 1);
  const auto path = addSession("mine", "seat0", ::getuid());
  manager->callMethod("AddProperty")
      .onInterface(mockInterface)
      .withArguments(std::string("org.freedesktop.login1.Manager"), std::string("LidClosed"), sdbus::Variant(true));

  LinuxDesktop desktop(options());
  EXPECT_EQ(desktop.sessionState(), (SessionState{.screensaverActive = std::nullopt, .screenLocked = false}));
  EXPECT_EQ(desktop.clamshellClosed(), true);
  auto session = systemBus.proxy("org.freedesktop.login1", path);
  session->callMethod("SetLockedHint").onInterface("org.freedesktop.login1.Session").withArguments(true);
  ASSERT_TRUE(eventually([&] { return desktop.sessionState().screenLocked == true; }));
  EXPECT_EQ(desktop.frontmostApp(), (FrontmostApp{.name = "loginwindow"}));

  manager->callMethod("UpdateProperties")
      .onInterface(mockInterface)
      .withArguments(std::string("org.freedesktop.login1.Manager"), Properties{{"LidClosed", sdbus::Variant(false)}});
  nowMs += 10'000;
  EXPECT_TRUE(eventually([&] { return desktop.sample().clamshellClosed == false; }));

  systemBus.stopLastService();
  EXPECT_TRUE(eventually([&] { return desktop.sessionState().screenLocked == std::nullopt; })) << "gone is not unlocked";
}

TEST_F(LinuxDesktopTest, aBareLockerIsKnownByWhatItPutsOverTheScreen) {
  const test::XServer server;
  systemBus.startTemplate("logind", "org.freedesktop.login1");
  std::string path;
  systemBus.proxy("org.freedesktop.login1", "/org/freedesktop/login1")
      ->callMethod("AddSession")
      .onInterface(mockInterface)
      .withArguments(std::string("mine"), std::string("seat0"), std::uint32_t{::getuid()}, std::string("someone"), true)
      .storeResultsTo(path);
  auto with = options();
  with.display = server.display();
  LinuxDesktop desktop(with);
  ASSERT_EQ(desktop.sessionState().screenLocked, false);
  const auto askForLock = [&] {
    systemBus.proxy("org.freedesktop.login1", path)->callMethod("Lock").onInterface("org.freedesktop.login1.Session");
  };
  const auto cover = [&] {
    return test::TestWindow(server.display(),
                            {.className = "i3lock", .x = 0, .y = 0, .width = 1280, .height = 800, .isOverrideRedirect = true});
  };
  askForLock();
  {
    const auto locker = cover();
    EXPECT_TRUE(eventually([&] { return desktop.sessionState().screenLocked == true; }));
  }
  EXPECT_TRUE(eventually([&] { return desktop.sessionState().screenLocked == false; }));
  {
    const auto screenshotTool = cover();
    EXPECT_EQ(desktop.sessionState().screenLocked, false) << "nobody asked for a lock this time";
  }
  askForLock();
  EXPECT_EQ(desktop.sessionState().screenLocked, false) << "a request alone locks nothing";
}

TEST_F(LinuxDesktopTest, aPlayerIsReadAndPaused) {
  constexpr const char *service = "org.mpris.MediaPlayer2.radio", *path = "/org/mpris/MediaPlayer2",
                       *interface = "org.mpris.MediaPlayer2.Player";
  sessionBus.startService(service, path, interface);
  auto player = sessionBus.proxy(service, path);
  const Properties track{{"xesam:title", sdbus::Variant(std::string("Rivers"))},
                         {"xesam:artist", sdbus::Variant(std::vector<std::string>{"One", "Two"})}};
  player->callMethod("AddProperties")
      .onInterface(mockInterface)
      .withArguments(std::string(interface),
                     Properties{{"PlaybackStatus", sdbus::Variant(std::string("Playing"))}, {"Metadata", sdbus::Variant(track)}});
  addMethod(service, path, interface, "Pause", "", "self.UpdateProperties('org.mpris.MediaPlayer2.Player', {'PlaybackStatus': 'Paused'})");

  LinuxDesktop desktop(options());
  desktop.sample();
  EXPECT_EQ(desktop.nowPlaying().fetch(), (NowPlaying::Result{.title = "Rivers", .artist = "One, Two", .playing = true}));
  desktop.nowPlaying().sendPause();
  EXPECT_TRUE(eventually([&] { return desktop.nowPlaying().fetch().playing == false; }));
  EXPECT_EQ(desktop.nowPlaying().fetch().title, "Rivers");
  sessionBus.stopLastService();
  EXPECT_TRUE(eventually([&] { return desktop.nowPlaying().fetch() == NowPlaying::Result{}; }));
}

TEST_F(LinuxDesktopTest, powerByUPowerElseByTheKernel) {
  sys.write("class/power_supply/BAT0/type", "Battery");
  sys.write("class/power_supply/BAT0/status", "Charging");
  sys.write("class/power_supply/BAT0/capacity", "50");
  sys.write("class/power_supply/BAT0/charge_full", "4000000");
  LinuxDesktop desktop(options());
  auto now = desktop.sample();
  EXPECT_EQ(now.battery, (BatteryInfo{.percent = 50, .pluggedIn = true}));
  EXPECT_EQ(now.batteryTelemetry, (BatteryTelemetry{.updateTimeS = nowMs / 1000, .fullChargeCapacityMAh = 4'000}));
  EXPECT_EQ(now.clamshellClosed, std::nullopt);

  systemBus.startTemplate("upower", "org.freedesktop.UPower");
  systemBus.proxy("org.freedesktop.UPower", "/org/freedesktop/UPower")
      ->callMethod("SetupDisplayDevice")
      .onInterface(mockInterface)
      .withArguments(std::uint32_t{2}, std::uint32_t{2}, 33.4, 10.0, 30.0, 5.0, std::int64_t{100}, std::int64_t{0}, true, std::string(),
                     std::uint32_t{1});
  systemBus.proxy("org.freedesktop.UPower", "/org/freedesktop/UPower")
      ->callMethod("UpdateProperties")
      .onInterface(mockInterface)
      .withArguments(std::string("org.freedesktop.UPower"),
                     Properties{{"OnBattery", sdbus::Variant(true)}, {"LidIsClosed", sdbus::Variant(true)}});
  ASSERT_TRUE(eventually([&] { return desktop.powerSource().snapshot().batteryDischarging == true; }));
  EXPECT_EQ(desktop.powerSource().snapshot(), (PowerSnapshot{.isPluggedIn = false, .batteryDischarging = true, .batteryPercent = 33}));
  EXPECT_EQ(desktop.clamshellClosed(), true);
  systemBus.stopLastService();
  EXPECT_TRUE(eventually([&] { return desktop.batteryInfo() == BatteryInfo{.percent = 50, .pluggedIn = true}; }));
}

TEST_F(LinuxDesktopTest, theBusEndsAndIsSaidOnce) {
  startSaver("org.gnome.ScreenSaver", "/org/gnome/ScreenSaver", true);
  LinuxDesktop desktop(options());
  ASSERT_EQ(desktop.sessionState().screensaverActive, true);
  sessionBus.stop();
  EXPECT_TRUE(eventually([&] { return desktop.sessionState() == SessionState{}; })) << "unknown, neither locked nor unlocked";
  for (int i = 0; i < 3; ++i) desktop.sample();
  EXPECT_EQ(std::count_if(log.begin(), log.end(), [](const std::string& line) { return line.starts_with("no session bus"); }), 1);
}

}  // namespace
}  // namespace halvo
