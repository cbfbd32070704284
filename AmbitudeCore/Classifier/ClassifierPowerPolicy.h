#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "AmbitudeCore/Classifier/ClassifierCadence.h"
#include "CaptureShared/Foundation/Environment.h"
#include "Platform/Power/PowerSource.h"

/// How the classifier spares a battery. Pure; the keys are AMBITCAP_CLASSIFY_REQUIRE_AC and the two battery intervals.
namespace halvo::ClassifierPowerPolicy {

inline constexpr std::string_view pauseReason = "on battery -- classifier paused (AMBITCAP_CLASSIFY_REQUIRE_AC)";

/// Whether AMBITCAP_CLASSIFY_REQUIRE_AC is present and none of "0", "false", "off", "no", "" in any case.
bool isRequiredByEnvironment(const Environment& environment);
/// AMBITCAP_CLASSIFY_BATTERY_MAX_INTERVAL_SEC and _MIN_: seconds, absent unless a positive integer.
std::optional<std::int64_t> batteryCeilingSec(const Environment& environment);
std::optional<std::int64_t> batteryFloorSec(const Environment& environment);

/// The cadence for this source of power.
ClassifierCadence::Config effectiveConfig(bool onBattery, const Environment& environment);
/// Whether any of the three keys is in effect; a power reading is only made then.
bool needsLiveReading(const Environment& environment);
/// A machine that can't tell counts as on mains.
bool isOnBattery(const PowerSnapshot& snapshot);
bool mustSkip(const PowerSnapshot& snapshot, const Environment& environment);

/// "On battery — set to run only when plugged in" while the state is paused for power.
std::optional<std::string_view> healthNote(const ClassifierCadence::State& state);

}  // namespace halvo::ClassifierPowerPolicy
