#include "Platform/Linux/LinuxPower.h"

#include <cmath>

#include <sdbus-c++/sdbus-c++.h>

namespace halvo {
namespace {

constexpr const char* powerService = "org.freedesktop.UPower";
/// UPower's numbers for what a battery does.
constexpr double stateDischarging = 2;

}  // namespace

LinuxPower::LinuxPower(MessageBus& systemBus, Options options) : bus_(systemBus), options_(std::move(options)) { bus_.add(*this); }
LinuxPower::~LinuxPower() = default;

const PowerSupplies::Reading& LinuxPower::files() {
  const auto nowMs = options_.nowMs();
  // A clock that was set back must not stop the readings.
  if (!readAtMs_ || nowMs < *readAtMs_ || nowMs - *readAtMs_ >= options_.rereadSec * 1000) {
    files_ = PowerSupplies::read(options_.sys);
    if (files_ != PowerSupplies::Reading{}) files_.telemetry.updateTimeS = nowMs / 1000;
    readAtMs_ = nowMs;
  }
  return files_;
}

PowerSnapshot LinuxPower::snapshot() {
  bus_.pump();
  const auto onBattery = upower_ ? upower_->boolean("OnBattery") : std::nullopt;
  const auto present = battery_ ? battery_->boolean("IsPresent") : std::nullopt;
  if (!onBattery || !present) return files().power;
  if (!*present) return {};
  PowerSnapshot power{.isPluggedIn = !*onBattery};
  if (const auto state = battery_->number("State")) power.batteryDischarging = *state == stateDischarging;
  if (const auto percent = battery_->number("Percentage"); percent && *percent >= 0 && *percent <= 100)
    power.batteryPercent = static_cast<int>(std::lround(*percent));
  return power;
}

BatteryInfo LinuxPower::batteryInfo() {
  const auto power = snapshot();
  return {.percent = power.batteryPercent, .pluggedIn = power.isPluggedIn};
}

BatteryTelemetry LinuxPower::telemetry() { return files().telemetry; }

LinuxPower::Lid LinuxPower::lid() const {
  if (!upower_) return {};
  return {.isPresent = upower_->boolean("LidIsPresent"), .isClosed = upower_->boolean("LidIsClosed")};
}

void LinuxPower::connected() {
  lost();
  if (bus_.runs(powerService)) serviceChanged(powerService, true);
}

void LinuxPower::lost() {
  upower_.reset();
  battery_.reset();
}

void LinuxPower::serviceChanged(const std::string& name, bool isRunning) {
  if (name != powerService) return;
  lost();
  if (!isRunning) return;
  upower_ = std::make_unique<WatchedObject>(
      bus_, WatchedObject::Place{.service = powerService, .path = "/org/freedesktop/UPower", .interface = "org.freedesktop.UPower"});
  battery_ = std::make_unique<WatchedObject>(bus_, WatchedObject::Place{.service = powerService,
                                                                        .path = "/org/freedesktop/UPower/devices/DisplayDevice",
                                                                        .interface = "org.freedesktop.UPower.Device"});
}

}  // namespace halvo
