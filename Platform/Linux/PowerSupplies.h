#pragma once

#include <filesystem>
#include <optional>
#include <vector>

#include "Platform/Desktop/DesktopFacts.h"
#include "Platform/Power/PowerSource.h"

/// Batteries, mains and warmth as the kernel shows them under /sys. A file that is missing, unreadable or not a number is absent.
namespace halvo::PowerSupplies {

struct Reading {
  PowerSnapshot power = {};
  BatteryTelemetry telemetry = {};  ///< of the first battery; without `updateTimeS`
  bool operator==(const Reading&) const = default;
};

/// Reads <sys>/class/power_supply. Batteries of mice and headsets don't count. Several batteries are one, weighed by what they hold.
Reading read(const std::filesystem::path& sys);

/// Reads <sys>/class/hwmon, and the package's zone under <sys>/class/thermal when no chip there measures the processor.
ThermalReading thermal(const std::filesystem::path& sys);

}  // namespace halvo::PowerSupplies
