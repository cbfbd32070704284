// What is read from a desktop, turned into facts: no server, no bus.

#include <gtest/gtest.h>

#include "Platform/Linux/BrowserTitles.h"
#include "Platform/Linux/InputClock.h"
#include "Platform/Linux/LinuxMachine.h"
#include "Platform/Linux/PowerSupplies.h"
#include "Platform/Linux/XPixels.h"
#include "Platform/Linux/XText.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {

using namespace std::string_literals;

TEST(InputClock, tellsKeyAndMouseApart) {
  InputClock clock(10'000, 4'000);
  EXPECT_EQ(clock.at(10'000), (IdleSeconds{.key = 4, .mouse = 4, .any = 4}));
  clock.mouse(11'000);
  clock.mouse(10'500);  // an older event changes nothing
  EXPECT_EQ(clock.at(12'000), (IdleSeconds{.key = 6, .mouse = 1, .any = 1}));
  clock.key(12'500);
  EXPECT_EQ(clock.at(12'400), (IdleSeconds{.key = 0, .mouse = 1.4, .any = 0}));
}

TEST(InputClock, theServersClockWrapsAndPeopleGoOnHoliday) {
  InputClock wrapping(0xFFFFFC18, 0);  // one second before the wrap
  EXPECT_EQ(wrapping.at(1'000).any, 2.0);
  wrapping.key(500);
  EXPECT_EQ(wrapping.at(1'000), (IdleSeconds{.key = 0.5, .mouse = 2, .any = 0.5}));

  constexpr std::uint32_t days40 = 40u * 24 * 3600 * 1000;
  InputClock away(5'000, 0);
  EXPECT_EQ(away.at(5'000 + days40).any, 40.0 * 24 * 3600);
  away.key(5'000 + days40);
  EXPECT_EQ(away.at(5'000 + days40 + 1'000).key, 1.0);
}

TEST(XText, whateverAProgramStoredComesOutValid) {
  EXPECT_EQ(XText::decoded("Caf\xE9", false), "Café");
  EXPECT_EQ(XText::decoded("Café", false), "Café");  // UTF-8 under the wrong type
  EXPECT_EQ(XText::decoded("a\xFFz", true), "a\xEF\xBF\xBDz");
  EXPECT_EQ(XText::decoded("one\0two"s, true), "one");
  EXPECT_EQ(XText::className("navigator\0Firefox\0"s), "Firefox");
  EXPECT_EQ(XText::className("navigator\0\0"s), "navigator");
  EXPECT_EQ(XText::className("navigator"), "navigator");
  EXPECT_EQ(XText::className("\0\0"s), "");
}

TEST(BrowserTitles, pageTitle) {
  const struct { const char *windowClass, *title; std::optional<std::string> want; } cases[] = {
      {"firefox", "Essay - Wiki — Mozilla Firefox", "Essay - Wiki"},
      {"Firefox", "Essay — Mozilla Firefox Private Browsing", "Essay"},
      {"firefox", "Mozilla Firefox", std::nullopt},
      {"Google-chrome", "Watch - Videos - Google Chrome", "Watch - Videos"},
      {"Google-chrome", "Watch - Google Chrome (Incognito)", "Watch"},
      {"Chromium", "About Chromium - Chromium", "About Chromium"},
      {"Chromium", "About Chromium", "About Chromium"},  // no separator: the page's own word
      {"Falkon", "Essay – Falkon", "Essay"},
      {"gedit", "Essay - Google Chrome", std::nullopt},
      {"firefox", "", std::nullopt},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.title);
    EXPECT_EQ(BrowserTitles::pageTitle(c.windowClass, c.title), c.want);
  }
}

TEST(BrowserTitles, theActiveTabIsTheForemostWindowsOfTheFrontmostBrowser) {
  const std::vector<WindowInfo> windows{
      {.ownerName = "Google-chrome", .title = "menu", .layer = WindowInfo::layerPopUp},
      {.ownerName = "Google-chrome", .title = "Videos - Google Chrome"},
      {.ownerName = "firefox", .title = "Essay — Mozilla Firefox"},
      {.ownerName = "firefox", .title = "Old news — Mozilla Firefox"},
  };
  EXPECT_EQ(BrowserTitles::activeTab(windows, "firefox"), (BrowserTab{.browser = "firefox", .title = "Essay"}));
  EXPECT_EQ(BrowserTitles::activeTab(windows, "gedit"), (BrowserTab{.browser = "Google-chrome", .title = "Videos"}));
  // A blank tab in front: the page in the window behind it is not being looked at.
  const std::vector<WindowInfo> blank{{.ownerName = "firefox", .title = "Mozilla Firefox"}, windows[3]};
  EXPECT_EQ(BrowserTitles::activeTab(blank, "firefox"), std::nullopt);
}

TEST(XPixels, everyLayoutOfAServer) {
  const std::vector<std::uint8_t> usual{0x33, 0x22, 0x11, 0, 0x66, 0x55, 0x44, 0}, swapped{0, 0x11, 0x22, 0x33, 0, 0x44, 0x55, 0x66};
  const std::vector<std::uint8_t> want{0x11, 0x22, 0x33, 0x44, 0x55, 0x66};
  XPixels::Layout layout{.width = 2, .height = 1, .bitsPerPixel = 32, .red = 0xFF0000, .green = 0xFF00, .blue = 0xFF};
  EXPECT_EQ(XPixels::toRGB(layout, usual).pixels, want);
  layout.lowByteFirst = false;
  EXPECT_EQ(XPixels::toRGB(layout, swapped).pixels, want);
  // Five, six and five bits; each row is padded to 32 bits.
  const XPixels::Layout high{.width = 1, .height = 2, .bitsPerPixel = 16, .red = 0xF800, .green = 0x7E0, .blue = 0x1F};
  const std::vector<std::uint8_t> rows{0x00, 0xF8, 9, 9, 0xFF, 0x07, 9, 9};
  EXPECT_EQ(XPixels::toRGB(high, rows).pixels, (std::vector<std::uint8_t>{255, 0, 0, 0, 255, 255}));
  EXPECT_THROW(XPixels::toRGB(high, std::span(rows).first(7)), std::runtime_error);
}

TEST(PNGWriter, whatIsEncodedIsReadBack) {
  const PNGWriter::RGBImage image{.width = 3, .height = 2, .pixels = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18}};
  const auto again = PNGWriter::decode(PNGWriter::encode(image));
  EXPECT_EQ(again.width, 3u);
  EXPECT_EQ(again.pixels, image.pixels);
  EXPECT_THROW(PNGWriter::encode({.width = 3, .height = 3, .pixels = image.pixels}), std::runtime_error);
  EXPECT_THROW(PNGWriter::decode("no picture"), std::runtime_error);
}

TEST(PowerSupplies, read) {
  const test::TemporaryFolder sys;
  EXPECT_EQ(PowerSupplies::read(sys.path()), PowerSupplies::Reading{});

  sys.write("class/power_supply/AC/type", "Mains\n");
  sys.write("class/power_supply/AC/online", "1\n");
  sys.write("class/power_supply/mouse/type", "Battery\n");
  sys.write("class/power_supply/mouse/scope", "Device\n");
  sys.write("class/power_supply/mouse/capacity", "3\n");
  EXPECT_EQ(PowerSupplies::read(sys.path()), PowerSupplies::Reading{}) << "a mouse's battery makes no laptop";

  sys.write("class/power_supply/AC/online", "0\n");
  sys.write("class/power_supply/BAT0/type", "Battery\n");
  sys.write("class/power_supply/BAT0/status", "Discharging\n");
  sys.write("class/power_supply/BAT0/capacity", "80\n");
  sys.write("class/power_supply/BAT0/energy_full", "30000000\n");
  sys.write("class/power_supply/BAT0/voltage_min_design", "12000000\n");
  sys.write("class/power_supply/BAT0/voltage_now", "12500000\n");
  sys.write("class/power_supply/BAT0/power_now", "10000000\n");
  EXPECT_EQ(PowerSupplies::read(sys.path()),
            (PowerSupplies::Reading{.power = {.isPluggedIn = false, .batteryDischarging = true, .batteryPercent = 80},
                                    .telemetry = {.voltageMV = 12'500, .instantAmperageMA = -800, .fullChargeCapacityMAh = 2'500}}));

  sys.write("class/power_supply/BAT1/type", "Battery\n");
  sys.write("class/power_supply/BAT1/status", "Unknown\n");
  sys.write("class/power_supply/BAT1/capacity", "20\n");
  sys.write("class/power_supply/BAT1/energy_full", "10000000\n");
  sys.write("class/power_supply/BAT0/capacity", "not a number\n");
  EXPECT_EQ(PowerSupplies::read(sys.path()).power.batteryPercent, 20) << "one battery that doesn't tell leaves the other's word";
  sys.write("class/power_supply/BAT0/capacity", "80\n");
  EXPECT_EQ(PowerSupplies::read(sys.path()).power.batteryPercent, 65) << "weighed by what they hold: (80·30 + 20·10) / 40";
}

TEST(PowerSupplies, thermal) {
  const test::TemporaryFolder sys;
  EXPECT_EQ(PowerSupplies::thermal(sys.path()), ThermalReading{});
  sys.write("class/thermal/thermal_zone0/type", "x86_pkg_temp\n");
  sys.write("class/thermal/thermal_zone0/temp", "51000\n");
  EXPECT_EQ(PowerSupplies::thermal(sys.path()), ThermalReading{.cpuC = 51});
  sys.write("class/hwmon/hwmon0/name", "coretemp\n");
  sys.write("class/hwmon/hwmon0/temp1_input", "48500\n");
  sys.write("class/hwmon/hwmon0/temp2_input", "62000\n");
  sys.write("class/hwmon/hwmon0/temp2_max", "100000\n");
  sys.write("class/hwmon/hwmon1/name", "nvme\n");
  sys.write("class/hwmon/hwmon1/temp1_input", "90000\n");
  EXPECT_EQ(PowerSupplies::thermal(sys.path()), ThermalReading{.cpuC = 62});
}

TEST(LinuxMachine, readsItsOwnFiles) {
  const test::TemporaryFolder root;
  const LinuxMachine machine(root.path());
  EXPECT_EQ(machine.bootTimeMs(), std::nullopt);
  EXPECT_EQ(machine.identity(), std::nullopt);
  root.write("proc/stat", "cpu 1 2 3\nbtime 1700000000\nprocesses 4\n");
  root.write("etc/machine-id", "\n");
  EXPECT_EQ(machine.bootTimeMs(), 1'700'000'000'000);
  EXPECT_EQ(machine.identity(), std::nullopt);
  root.write("etc/machine-id", "0123abcd\n");
  EXPECT_EQ(machine.identity(), "0123abcd");
  EXPECT_EQ(machine.physicalMemoryBytes(), std::nullopt);
  root.write("proc/meminfo", "MemTotal:       16303956 kB\nMemFree:  1 kB\n");
  EXPECT_EQ(machine.physicalMemoryBytes(), std::uint64_t{16} << 30);
  EXPECT_GT(machine.freeBytes(root.path()).value_or(0), 0u);
  EXPECT_EQ(machine.freeBytes(root.path() / "missing"), std::nullopt);
}

}  // namespace
}  // namespace halvo
