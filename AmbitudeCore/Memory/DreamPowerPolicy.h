#pragma once

#include <optional>
#include <string_view>

#include "AmbitudeCore/Memory/DreamGuardrails.h"
#include "AmbitudeCore/Memory/PassOutcome.h"
#include "CaptureShared/Foundation/Environment.h"

/// The wish to have the nightly job run on mains alone: AMBITCAP_DREAM_REQUIRE_AC. Pure.
namespace halvo::DreamPowerPolicy {

inline constexpr std::string_view environmentKey = "AMBITCAP_DREAM_REQUIRE_AC";
inline constexpr std::string_view deferralReason =
    "on battery -- consolidation deferred until AC power returns (AMBITCAP_DREAM_REQUIRE_AC)";

/// Whether the key is present and none of "0", "false", "off", "no", blank, in any case.
bool isRequiredByEnvironment(const Environment& environment);
/// Not plugged in or, when that can't be told, discharging.
bool isDeferredFor(const DreamGuardrails::Snapshot& snapshot);
/// A pause when mains power is required and missing.
DreamGuardrails::Decision decision(const DreamGuardrails::Snapshot& snapshot, const Environment& environment);
/// The more severe of the guardrails and this policy; a pass asks between its calls.
DreamGuardrails::Decision checkpoint(const DreamGuardrails::Snapshot& snapshot, const Environment& environment);

/// What a decision means for a pass: a pause and an abort end it, low power does not.
std::optional<PassStop> passStop(const DreamGuardrails::Decision& decision);
/// Whether the checkpoint ended the pass, and not the person's return.
bool isPowerCausedStop(const PassStop& stop);

}  // namespace halvo::DreamPowerPolicy
