#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "CaptureShared/Records/ClassifierTick.h"

/// Moments when this system's own window was in front, which say nothing about the person.
namespace halvo::ClassifierSelfObservation {

inline constexpr std::string_view abstainedState = "ABSTAINED";
inline constexpr std::string_view abstainedReason =
    "Lark's own window was frontmost, which says nothing about your intention — not judged.";
inline constexpr std::string_view currentAppName = "Halvo";
inline constexpr std::string_view historicalAppNames[] = {"Ambitude"};  ///< what it was called in old rows

/// Compared without case; an unknown app is not ours.
bool isOwnWindowNow(const std::optional<std::string>& frontmostApp);
/// By every name it ever had.
bool isOwnWindow(const std::optional<std::string>& frontmostApp);
bool isOwnWindowNow(const ClassifierTick& tick);
bool isOwnWindow(const ClassifierTick& tick);

}  // namespace halvo::ClassifierSelfObservation
