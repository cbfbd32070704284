#pragma once

#include <string>
#include <string_view>

#include "CaptureShared/Foundation/Environment.h"

/// Which local model judges.
namespace halvo::ClassifierModel {

inline constexpr std::string_view defaultName = "gemma4:12b-it-qat";
/// Tokens of context that a judgment is made to fit.
inline constexpr int contextLength = 8192;

/// AMBITCHECK_MODEL, trimmed, when it is not blank; else `fallback`.
std::string resolved(const Environment& environment, std::string_view fallback = defaultName);

}  // namespace halvo::ClassifierModel
