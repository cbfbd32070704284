#pragma once

#include <map>
#include <optional>
#include <string>
#include <variant>

#include "AmbitudeCore/Classifier/ClassifierCadence.h"
#include "CaptureShared/Foundation/Environment.h"

/// The settings panel's view of the classifier's interval and battery keys, in minutes.
namespace halvo::ClassifierBatterySettings {

inline constexpr int defaultLessOftenFloorMinutes = 5;
inline constexpr int defaultLessOftenCeilingMinutes = 20;
inline constexpr int floorOptions[] = {5, 10, 15, 20};

struct CheckLessOften {
  int floorMinutes = defaultLessOftenFloorMinutes;
  int ceilingMinutes = defaultLessOftenCeilingMinutes;
  bool operator==(const CheckLessOften&) const = default;
};
struct CheckNormally {
  bool operator==(const CheckNormally&) const = default;
};
struct PauseOnBattery {
  bool operator==(const PauseOnBattery&) const = default;
};
using OnBatteryMode = std::variant<CheckLessOften, CheckNormally, PauseOnBattery>;

struct Values {
  OnBatteryMode onBattery = CheckNormally{};
  std::optional<int> pluggedInFloorMinutes = {};    ///< absent: the default interval
  std::optional<int> pluggedInCeilingMinutes = {};
  bool operator==(const Values&) const = default;
};

/// Seconds are shown in whole minutes, rounded up, one at least. A battery interval of which only one end is set takes the other's default.
Values read(const Environment& environment);

/// The settings as keys and values in seconds, for `AgentConfig::setEnvSettings`; an absent value removes the key.
std::map<std::string, std::optional<std::string>> envUpdates(const Values& values);

/// The cadence that these settings give; absent when nothing is judged.
std::optional<ClassifierCadence::Config> effectiveOnBatteryConfig(const Values& values, bool pluggedIn);

}  // namespace halvo::ClassifierBatterySettings
