#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "CaptureShared/Foundation/Calendar.h"

/// The nightly job's log lines.
namespace halvo::ConsolidateLog {

inline constexpr std::string_view failurePrefix = "consolidate FAILED: ";

/// UTC time, a blank, the text.
inline std::string line(std::string_view text, std::int64_t atMs) { return ISO8601::utcSeconds(atMs) + " " + std::string(text); }

}  // namespace halvo::ConsolidateLog
