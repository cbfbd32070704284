#pragma once

#include <optional>

namespace halvo {

/// Where the machine's power comes from at one moment. Absent means "could not be told": on a machine without a battery all is absent,
/// and callers take that for neither on battery nor draining.
struct PowerSnapshot {
  std::optional<bool> isPluggedIn = {};
  std::optional<bool> batteryDischarging = {};
  std::optional<int> batteryPercent = {};  ///< 0…100
  bool operator==(const PowerSnapshot&) const = default;
};

/// How warm the machine is, in degrees Celsius: the hottest sensor of each kind.
struct ThermalReading {
  std::optional<double> cpuC = {}, gpuC = {};
  bool operator==(const ThermalReading&) const = default;
};

/// Readings of power and warmth. Never throws; one caller at a time.
class PowerSource {
 public:
  virtual ~PowerSource() = default;
  virtual PowerSnapshot snapshot() = 0;
  virtual ThermalReading thermal() = 0;
};

}  // namespace halvo
