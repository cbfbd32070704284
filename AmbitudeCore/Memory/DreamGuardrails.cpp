#include "AmbitudeCore/Memory/DreamGuardrails.h"

#include <fmt/format.h>

#include "CaptureShared/Foundation/Match.h"

namespace halvo::DreamGuardrails {

namespace {

Decision byEnclosure(const Snapshot& snapshot) {
  if (!snapshot.distantTempC || *snapshot.distantTempC < distantTempAbortC) return Proceed{};
  return Abort{
      fmt::format("{:g}°C — enclosure hot with no airflow (backpack case), unsafe to keep the machine spinning", *snapshot.distantTempC)};
}

Decision byThermalPressure(const Snapshot& snapshot) {
  if (snapshot.thermalPressure == ThermalPressure::critical)
    return Pause{"OS thermal state critical — system is already throttling to essential load; holding regardless of cause"};
  if (snapshot.thermalPressure == ThermalPressure::serious)
    return LowPower{"OS thermal state serious — system is under real thermal pressure; shedding load"};
  return Proceed{};
}

Decision byBattery(const Snapshot& snapshot) {
  if (!isDraining(snapshot)) return Proceed{};
  if (!snapshot.batteryPercent) return Pause{"battery draining, charge unreadable — holding to protect the reserve"};
  const int percent = *snapshot.batteryPercent;
  if (percent <= batteryFloorPercent)
    return Pause{fmt::format("{}% draining ≤ floor {}% — holding to protect the reserve", percent, batteryFloorPercent)};
  if (percent <= batteryLowPowerPercent) return LowPower{fmt::format("{}% — shedding load", percent)};
  return Proceed{};
}

}  // namespace

Snapshot Snapshot::live(PowerSource& source) {
  const auto power = source.snapshot();
  const auto warmth = source.thermal();
  return {.isPluggedIn = power.isPluggedIn,
          .batteryPercent = power.batteryPercent,
          .batteryDischarging = power.batteryDischarging,
          .cpuTempC = warmth.cpuC,
          .gpuTempC = warmth.gpuC};
}

int severity(const Decision& decision) {
  return match(
      decision, [](const Proceed&) { return 0; }, [](const LowPower&) { return 1; }, [](const Pause&) { return 2; },
      [](const Abort&) { return 3; });
}

Decision moreSevere(const Decision& a, const Decision& b) { return severity(b) > severity(a) ? b : a; }

bool isDraining(const Snapshot& snapshot) {
  return snapshot.batteryDischarging ? *snapshot.batteryDischarging : snapshot.isPluggedIn == false;
}

Decision evaluate(const Snapshot& snapshot) {
  return moreSevere(moreSevere(byEnclosure(snapshot), byThermalPressure(snapshot)), byBattery(snapshot));
}

}  // namespace halvo::DreamGuardrails
