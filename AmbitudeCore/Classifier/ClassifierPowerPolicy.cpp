#include "AmbitudeCore/Classifier/ClassifierPowerPolicy.h"

#include <algorithm>

#include "CaptureShared/Foundation/Text.h"

namespace halvo::ClassifierPowerPolicy {
namespace {

std::optional<std::int64_t> seconds(const Environment& environment, std::string_view key) {
  const auto text = value(environment, key);
  const auto number = text ? Text::parseInteger(*text) : std::nullopt;
  return number && *number > 0 ? number : std::nullopt;
}

}  // namespace

bool isRequiredByEnvironment(const Environment& environment) {
  const auto text = value(environment, "AMBITCAP_CLASSIFY_REQUIRE_AC");
  if (!text) return false;
  const auto lower = Text::lower(*text);
  return lower != "0" && lower != "false" && lower != "off" && lower != "no" && !Text::isBlank(lower);
}

std::optional<std::int64_t> batteryCeilingSec(const Environment& environment) {
  return seconds(environment, "AMBITCAP_CLASSIFY_BATTERY_MAX_INTERVAL_SEC");
}

std::optional<std::int64_t> batteryFloorSec(const Environment& environment) {
  return seconds(environment, "AMBITCAP_CLASSIFY_BATTERY_MIN_INTERVAL_SEC");
}

ClassifierCadence::Config effectiveConfig(bool onBattery, const Environment& environment) {
  auto config = ClassifierCadence::Config::fromEnvironment(environment);
  if (!onBattery) return config;
  if (const auto floor = batteryFloorSec(environment)) config.floorSec = *floor;
  if (const auto ceiling = batteryCeilingSec(environment)) config.ceilingSec = *ceiling;
  return ClassifierCadence::Config::make(config);
}

bool needsLiveReading(const Environment& environment) {
  return isRequiredByEnvironment(environment) || batteryCeilingSec(environment) || batteryFloorSec(environment);
}

bool isOnBattery(const PowerSnapshot& snapshot) { return snapshot.isPluggedIn == false; }

bool mustSkip(const PowerSnapshot& snapshot, const Environment& environment) {
  return isRequiredByEnvironment(environment) && isOnBattery(snapshot);
}

std::optional<std::string_view> healthNote(const ClassifierCadence::State& state) {
  if (!state.pausedForPower) return std::nullopt;
  return "On battery — set to run only when plugged in";
}

}  // namespace halvo::ClassifierPowerPolicy
