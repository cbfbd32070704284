#pragma once

#include <string>
#include <string_view>

#include "CaptureShared/Foundation/Environment.h"

/// How long a model stays in memory after its last use.
namespace halvo::OllamaKeepAlive {

inline constexpr std::string_view fallback = "6m";
inline constexpr std::string_view envVar = "AMBITCAP_OLLAMA_KEEP_ALIVE";

/// A whole number above 0 without leading zeros, then "s", "m" or "h".
bool isValid(std::string_view text);
/// The value of `envVar` when it is valid, else `fallback`.
std::string configured(const Environment& environment);
/// A text that is not valid, or too large a number, counts as `fallback`.
int sleepIdleSeconds(std::string_view text);

}  // namespace halvo::OllamaKeepAlive
