// When a pass may start and when it has to stop.

#include <gtest/gtest.h>

#include "AmbitudeCore/Memory/ConsolidationHealthPresentation.h"
#include "AmbitudeCore/Memory/DreamPowerPolicy.h"
#include "AmbitudeCore/Memory/DreamSchedule.h"
#include "AmbitudeCore/Memory/MemoryConsolidationEvents.h"
#include "CaptureShared/Foundation/Calendar.h"
#include "Platform/Testing/FakePlatform.h"

namespace halvo {
namespace {

TEST(DreamSchedule, evaluate) {
  using namespace DreamSchedule;
  constexpr std::int64_t now = 1'000'000'000'000;
  const auto ago = [](std::int64_t sec) { return now - sec * 1000; };
  const Hold upToDate{"no pending periods -- memory is up to date"},
      present{"he's at the machine -- dreaming can wait for a locked screen"};
  const struct { const char* name; Snapshot snapshot; Decision want; } cases[] = {
      {"nothing due", {.pendingPeriodCount = 0, .presence = Presence::away}, upToDate},
      {"a pass 3599 s ago", {1, Presence::away, {}, ago(3599)}, Hold{"last pass ended 59 min ago"}},
      {"a pass 3600 s ago", {1, Presence::away, {}, ago(3600)}, Dream{1}},
      {"at the machine", {2, Presence::present, {}, ago(9000)}, present},
      {"away, with a busy log", {2, Presence::away, ago(1)}, Dream{2}},
      {"who knows, an event 7199 s ago", {2, Presence::unknown, ago(7199)}, Hold{"no presence signal and the log was active 119 min ago"}},
      {"who knows, an event 7200 s ago", {2, Presence::unknown, ago(7200)}, Dream{2}},
      {"who knows, no event ever", {3, Presence::unknown}, Dream{3}},
      {"the recent pass comes before presence", {1, Presence::present, {}, ago(0)}, Hold{"last pass ended 0 min ago"}},
  };
  for (auto c : cases) {
    c.snapshot.asOfMs = now;
    EXPECT_EQ(evaluate(c.snapshot), c.want) << c.name;
  }
}

TEST(DreamSchedule, presence) {
  using namespace DreamSchedule;
  constexpr std::int64_t now = 1'764'000'000'000;
  const auto tick = [](std::int64_t msAgo, const char* app, const char* state = "ON_TASK") {
    return ClassifierTick{.at = ISO8601::utcMillis(now - msAgo), .state = state, .frontmostApp = app};
  };
  const auto by = [](std::vector<ClassifierTick> ticks) { return presence(ticks, now); };
  EXPECT_EQ(by({}), Presence::unknown);
  EXPECT_EQ(by({tick(180'001, "Mousepad")}), Presence::unknown);
  EXPECT_EQ(by({tick(180'000, "Mousepad")}), Presence::present);
  EXPECT_EQ(by({tick(10, "Mousepad"), tick(5, "loginwindow")}), Presence::away);
  EXPECT_EQ(by({tick(10, "Mousepad", "IDLE")}), Presence::present) << "idle is not away";
}

TEST(DreamGuardrails, theMostSevereSignalDecides) {
  using namespace DreamGuardrails;
  const Abort hot{"45°C — enclosure hot with no airflow (backpack case), unsafe to keep the machine spinning"};
  const Pause critical{"OS thermal state critical — system is already throttling to essential load; holding regardless of cause"};
  const LowPower serious{"OS thermal state serious — system is under real thermal pressure; shedding load"};
  const Pause unreadable{"battery draining, charge unreadable — holding to protect the reserve"};
  const Pause floor{"30% draining ≤ floor 30% — holding to protect the reserve"};
  const struct { const char* name; Snapshot snapshot; Decision want; } cases[] = {
      {"nothing known", {}, Proceed{}},
      {"45.0 degrees", {.distantTempC = 45.0}, hot},
      {"44.9 degrees", {.distantTempC = 44.9}, Proceed{}},
      {"a hot processor alone", {.cpuTempC = 99, .gpuTempC = 99}, Proceed{}},
      {"critical", {.thermalPressure = ThermalPressure::critical}, critical},
      {"serious", {.thermalPressure = ThermalPressure::serious}, serious},
      {"fair", {.thermalPressure = ThermalPressure::fair}, Proceed{}},
      {"on mains at 10 %", {.isPluggedIn = true, .batteryPercent = 10}, Proceed{}},
      {"on mains and losing charge", {.isPluggedIn = true, .batteryPercent = 30, .batteryDischarging = true}, floor},
      {"unplugged but not discharging", {.isPluggedIn = false, .batteryPercent = 10, .batteryDischarging = false}, Proceed{}},
      {"unplugged, charge unknown", {.isPluggedIn = false}, unreadable},
      {"31 %", {.isPluggedIn = false, .batteryPercent = 31}, LowPower{"31% — shedding load"}},
      {"50 %", {.batteryPercent = 50, .batteryDischarging = true}, LowPower{"50% — shedding load"}},
      {"51 %", {.batteryPercent = 51, .batteryDischarging = true}, Proceed{}},
      {"serious and empty", {.isPluggedIn = false, .batteryPercent = 30, .thermalPressure = ThermalPressure::serious}, floor},
      {"hot and critical", {.distantTempC = 45, .thermalPressure = ThermalPressure::critical}, hot},
  };
  for (const auto& c : cases) EXPECT_EQ(evaluate(c.snapshot), c.want) << c.name;
}

TEST(DreamPowerPolicy, mainsWhenAskedFor) {
  using namespace DreamPowerPolicy;
  const auto required = [](const char* text) { return isRequiredByEnvironment({{"AMBITCAP_DREAM_REQUIRE_AC", text}}); };
  EXPECT_FALSE(isRequiredByEnvironment({}));
  for (const auto* off : {"0", "false", "OFF", "no", "", " "}) EXPECT_FALSE(required(off)) << off;
  for (const auto* on : {"1", "true", "yes", "anything"}) EXPECT_TRUE(required(on)) << on;
  const Environment on{{"AMBITCAP_DREAM_REQUIRE_AC", "1"}};
  FakePowerSource source;
  source.power = {.isPluggedIn = false, .batteryDischarging = true, .batteryPercent = 90};
  source.warmth = {.cpuC = 60};
  const auto live = DreamGuardrails::Snapshot::live(source);
  EXPECT_EQ(live.batteryPercent, 90);
  EXPECT_EQ(live.cpuTempC, 60);
  const auto stop = passStop(checkpoint(live, on));
  ASSERT_TRUE(stop);
  EXPECT_EQ(stop->reason, "on battery -- consolidation deferred until AC power returns (AMBITCAP_DREAM_REQUIRE_AC)");
  EXPECT_TRUE(isPowerCausedStop(*stop));
  EXPECT_FALSE(passStop(checkpoint(live, {})));
  EXPECT_FALSE(isPowerCausedStop({PassStop::Kind::yielded, ""}));
  EXPECT_FALSE(passStop(checkpoint({}, on))) << "a machine that can't tell goes on";
  EXPECT_TRUE(isDeferredFor({.batteryDischarging = true}));
  EXPECT_FALSE(isDeferredFor({.isPluggedIn = true, .batteryDischarging = true}));
}

TEST(ConsolidationHealth, aBacklogOfTwoDaysIsTold) {
  using namespace ConsolidationHealthPresentation;
  using namespace MemoryConsolidationEvents;
  const std::vector events{failed("model down", 7, 100), deferredPowerStarted(150), failed("model down", 8, 200)};
  EXPECT_TRUE(isDeferredForPower(events));
  EXPECT_FALSE(isDeferredForPower(std::vector{deferredPowerStarted(1), deferredPowerEnded(2)}));
  EXPECT_EQ(trouble(events, std::nullopt), (Trouble{"model down", 8, false}));
  EXPECT_EQ(trouble(events, 201), std::nullopt) << "a memory came about since";
  EXPECT_EQ(bubbleText({"model down", 7}, false), std::nullopt);
  EXPECT_EQ(bubbleText({"model down", 8}, false)->find("model down"), std::string::npos);
  EXPECT_NE(bubbleText({"model down", 1}, true)->find("model down"), std::string::npos);
}

}  // namespace
}  // namespace halvo
