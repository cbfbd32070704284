#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Platform/Desktop/DesktopFacts.h"
#include "Platform/Linux/MessageBus.h"
#include "Platform/Linux/PowerSupplies.h"
#include "Platform/Power/PowerSource.h"

namespace halvo {

/// Power by UPower where it runs, else by the kernel's own files. UPower announces what changes; the files, which can cost a question to
/// the battery's own controller, are read at most every `rereadSec`.
class LinuxPower : public PowerSource, public MessageBus::Reader {
 public:
  struct Options {
    std::filesystem::path sys = "/sys";
    double rereadSec = 30;                     ///< a battery's figures hardly move in half a minute
    std::function<std::int64_t()> nowMs = {};  ///< milliseconds since the epoch; required
  };
  LinuxPower(MessageBus& systemBus, Options options);
  ~LinuxPower() override;

  PowerSnapshot snapshot() override;
  ThermalReading thermal() override { return PowerSupplies::thermal(options_.sys); }
  BatteryInfo batteryInfo();
  BatteryTelemetry telemetry();
  struct Lid {
    std::optional<bool> isPresent = {}, isClosed = {};
  };
  /// What UPower says of the lid.
  Lid lid() const;

  void connected() override;
  void lost() override;
  void serviceChanged(const std::string& name, bool isRunning) override;

 private:
  const PowerSupplies::Reading& files();

  MessageBus& bus_;
  Options options_;
  std::optional<std::int64_t> readAtMs_;
  PowerSupplies::Reading files_;
  std::unique_ptr<WatchedObject> upower_, battery_;
};

}  // namespace halvo
