#pragma once

#include <optional>
#include <string>
#include <variant>

#include "Platform/Power/PowerSource.h"

/// Whether a running pass may go on, by power and warmth. Pure but for `live`.
namespace halvo::DreamGuardrails {

inline constexpr double distantTempAbortC = 45;
inline constexpr int batteryFloorPercent = 30;
inline constexpr int batteryLowPowerPercent = 50;

enum class ThermalPressure { nominal, fair, serious, critical };

/// Absent means that it could not be told; nothing is decided by what is absent, save for a battery that drains with its charge unknown.
struct Snapshot {
  std::optional<bool> isPluggedIn = {};
  std::optional<int> batteryPercent = {};
  std::optional<bool> batteryDischarging = {};
  std::optional<double> distantTempC = {};  ///< degrees Celsius of a sensor away from the chips: the enclosure
  std::optional<double> cpuTempC = {}, gpuTempC = {};
  std::optional<ThermalPressure> thermalPressure = {};
  bool operator==(const Snapshot&) const = default;

  /// As the platform has it now. It knows no enclosure sensor and no thermal pressure.
  static Snapshot live(PowerSource& source);
};

struct LowPower {
  std::string reason;
  bool operator==(const LowPower&) const = default;
};
struct Pause {
  std::string reason;
  bool operator==(const Pause&) const = default;
};
struct Abort {
  std::string reason;
  bool operator==(const Abort&) const = default;
};
struct Proceed {
  bool operator==(const Proceed&) const = default;
};
using Decision = std::variant<LowPower, Pause, Abort, Proceed>;

/// 0 for proceed, then low power, pause, abort.
int severity(const Decision& decision);
/// `a` when they are equally severe.
Decision moreSevere(const Decision& a, const Decision& b);

/// On battery and losing charge: the battery's own word, else "not plugged in".
bool isDraining(const Snapshot& snapshot);

/// The most severe of what the signals say one by one.
Decision evaluate(const Snapshot& snapshot);

}  // namespace halvo::DreamGuardrails
