#include "AmbitudeCore/Classifier/ClassifierBatterySettings.h"

#include <algorithm>
#include <limits>

#include "AmbitudeCore/Classifier/ClassifierPowerPolicy.h"
#include "CaptureShared/Foundation/Match.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo::ClassifierBatterySettings {
namespace {

constexpr const char* pluggedInFloorKey = "AMBITCAP_CLASSIFY_MIN_INTERVAL_SEC";
constexpr const char* pluggedInCeilingKey = "AMBITCAP_CLASSIFY_MAX_INTERVAL_SEC";
constexpr const char* batteryFloorKey = "AMBITCAP_CLASSIFY_BATTERY_MIN_INTERVAL_SEC";
constexpr const char* batteryCeilingKey = "AMBITCAP_CLASSIFY_BATTERY_MAX_INTERVAL_SEC";
constexpr const char* requireMainsKey = "AMBITCAP_CLASSIFY_REQUIRE_AC";

std::optional<int> minutes(std::optional<std::int64_t> seconds) {
  if (!seconds || *seconds < 1) return std::nullopt;
  return static_cast<int>(std::min<std::int64_t>((*seconds - 1) / 60 + 1, std::numeric_limits<int>::max()));
}

std::optional<int> minutes(const Environment& environment, const char* key) {
  const auto text = value(environment, key);
  return minutes(text ? Text::parseInteger(*text) : std::nullopt);
}

std::optional<std::string> seconds(std::optional<int> minutes) {
  if (!minutes) return std::nullopt;
  return std::to_string(static_cast<std::int64_t>(*minutes) * 60);
}

}  // namespace

Values read(const Environment& environment) {
  Values values{.pluggedInFloorMinutes = minutes(environment, pluggedInFloorKey),
                .pluggedInCeilingMinutes = minutes(environment, pluggedInCeilingKey)};
  const auto floor = minutes(ClassifierPowerPolicy::batteryFloorSec(environment));
  const auto ceiling = minutes(ClassifierPowerPolicy::batteryCeilingSec(environment));
  if (ClassifierPowerPolicy::isRequiredByEnvironment(environment)) {
    values.onBattery = PauseOnBattery{};
  } else if (floor || ceiling) {
    const int least = floor.value_or(defaultLessOftenFloorMinutes);
    values.onBattery = CheckLessOften{least, std::max(least, ceiling.value_or(defaultLessOftenCeilingMinutes))};
  }
  return values;
}

std::map<std::string, std::optional<std::string>> envUpdates(const Values& values) {
  std::map<std::string, std::optional<std::string>> updates{{pluggedInFloorKey, seconds(values.pluggedInFloorMinutes)},
                                                            {pluggedInCeilingKey, seconds(values.pluggedInCeilingMinutes)},
                                                            {batteryFloorKey, std::nullopt},
                                                            {batteryCeilingKey, std::nullopt},
                                                            {requireMainsKey, std::nullopt}};
  match(
      values.onBattery,
      [&](const CheckLessOften& mode) {
        updates[batteryFloorKey] = seconds(mode.floorMinutes);
        updates[batteryCeilingKey] = seconds(mode.ceilingMinutes);
      },
      [](const CheckNormally&) {}, [&](const PauseOnBattery&) { updates[requireMainsKey] = "1"; });
  return updates;
}

std::optional<ClassifierCadence::Config> effectiveOnBatteryConfig(const Values& values, bool pluggedIn) {
  if (!pluggedIn && std::holds_alternative<PauseOnBattery>(values.onBattery)) return std::nullopt;
  Environment environment;
  for (const auto& [key, text] : envUpdates(values))
    if (text) environment[key] = *text;
  return ClassifierPowerPolicy::effectiveConfig(!pluggedIn, environment);
}

}  // namespace halvo::ClassifierBatterySettings
