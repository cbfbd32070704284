#include "Platform/Linux/PowerSupplies.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string>
#include <string_view>

#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo::PowerSupplies {
namespace {

namespace fs = std::filesystem;

std::optional<std::string> line(const fs::path& file) {
  try {
    return std::string(Text::trim(readFile(file)));
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

std::optional<double> number(const fs::path& file) {
  const auto text = line(file);
  const auto value = text ? Text::parseInteger(*text) : std::nullopt;
  return value ? std::optional<double>(static_cast<double>(*value)) : std::nullopt;
}

std::vector<fs::path> foldersIn(const fs::path& folder) {
  std::vector<fs::path> found;
  std::error_code failed;
  for (fs::directory_iterator entry(folder, failed), end; !failed && entry != end; entry.increment(failed)) found.push_back(entry->path());
  std::sort(found.begin(), found.end());
  return found;
}

std::optional<std::int64_t> whole(std::optional<double> value) {
  return value ? std::optional<std::int64_t>(std::llround(*value)) : std::nullopt;
}

/// The kernel's units are millionths: µV, µA, µW, µAh, µWh.
constexpr double thousandthsOf(double millionths) { return millionths / 1000; }

BatteryTelemetry telemetryOf(const fs::path& battery, bool discharging) {
  BatteryTelemetry figures;
  const auto voltage = number(battery / "voltage_now"), power = number(battery / "power_now");
  auto current = number(battery / "current_now");
  // Some batteries tell watts instead of amperes.
  if (!current && power && voltage && *voltage > 0) current = *power / *voltage * 1e6;
  if (voltage) figures.voltageMV = whole(thousandthsOf(*voltage));
  if (current) figures.instantAmperageMA = whole(thousandthsOf(discharging ? -std::abs(*current) : std::abs(*current)));
  const auto designVoltage = number(battery / "voltage_min_design");
  if (const auto charge = number(battery / "charge_full"))
    figures.fullChargeCapacityMAh = whole(thousandthsOf(*charge));
  else if (const auto energy = number(battery / "energy_full"); energy && designVoltage && *designVoltage > 0)
    figures.fullChargeCapacityMAh = whole(*energy / *designVoltage * 1000);
  return figures;
}

void warmest(std::optional<double>& so, double celsius) { so = std::max(so.value_or(celsius), celsius); }

}  // namespace

Reading read(const fs::path& sys) {
  Reading reading;
  bool hasBattery = false, allTold = true, discharging = false, fed = false;
  double weighed = 0, fullTotal = 0, percents = 0;
  int batteries = 0;
  for (const auto& supply : foldersIn(sys / "class" / "power_supply")) {
    const auto type = line(supply / "type").value_or("");
    if (type == "Battery") {
      if (line(supply / "scope") == "Device" || line(supply / "present") == "0") continue;
      const auto status = line(supply / "status").value_or("");
      const bool drains = status == "Discharging";
      discharging = discharging || drains;
      fed = fed || status == "Charging" || status == "Full" || status == "Not charging";
      if (!hasBattery) reading.telemetry = telemetryOf(supply, drains);
      hasBattery = true;
      const auto percent = number(supply / "capacity");
      if (!percent || *percent < 0) {
        allTold = false;
        continue;
      }
      ++batteries;
      percents += std::min(*percent, 100.0);
      auto full = number(supply / "energy_full");
      if (!full) full = number(supply / "charge_full");
      if (full && *full > 0) {
        weighed += *full * std::min(*percent, 100.0);
        fullTotal += *full;
      } else {
        allTold = false;
      }
    } else if (type == "Mains" || type == "USB" || type == "Wireless") {
      const auto online = number(supply / "online");
      if (!online) continue;
      const bool plugged = *online > 0;
      reading.power.isPluggedIn = reading.power.isPluggedIn.value_or(false) || plugged;
      const auto voltage = number(supply / "voltage_now"), current = number(supply / "current_now");
      if (plugged && voltage && current) reading.telemetry.systemPowerInMW = std::llround(*voltage * *current / 1e9);
    }
  }
  if (!hasBattery) return {};  // a machine without a battery has none of these facts
  reading.power.batteryDischarging = discharging;
  if (batteries > 0)
    reading.power.batteryPercent = static_cast<int>(std::lround(allTold && fullTotal > 0 ? weighed / fullTotal : percents / batteries));
  // Where no mains supply is listed, a battery that says what it does tells as much.
  if (!reading.power.isPluggedIn && (discharging || fed)) reading.power.isPluggedIn = !discharging;
  return reading;
}

ThermalReading thermal(const fs::path& sys) {
  constexpr std::array<std::string_view, 4> cpuChips{"coretemp", "k10temp", "zenpower", "cpu_thermal"};
  constexpr std::array<std::string_view, 3> gpuChips{"amdgpu", "nouveau", "radeon"};
  const auto isOne = [](const auto& names, std::string_view name) { return std::find(names.begin(), names.end(), name) != names.end(); };
  ThermalReading reading;
  for (const auto& chip : foldersIn(sys / "class" / "hwmon")) {
    const auto name = line(chip / "name").value_or("");
    const bool isCPU = isOne(cpuChips, name), isGPU = isOne(gpuChips, name);
    if (!isCPU && !isGPU) continue;
    for (const auto& file : foldersIn(chip)) {
      const auto sensor = file.filename().string();
      if (!sensor.starts_with("temp") || !sensor.ends_with("_input")) continue;
      if (const auto milli = number(file)) warmest(isCPU ? reading.cpuC : reading.gpuC, *milli / 1000);
    }
  }
  if (!reading.cpuC)
    for (const auto& zone : foldersIn(sys / "class" / "thermal"))
      if (line(zone / "type") == "x86_pkg_temp")
        if (const auto milli = number(zone / "temp")) warmest(reading.cpuC, *milli / 1000);
  return reading;
}

}  // namespace halvo::PowerSupplies
