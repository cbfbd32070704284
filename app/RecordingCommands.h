#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "CaptureShared/Foundation/Calendar.h"

/// `halvo recording`: whether the screen is recorded, and how. Each command answers the exit status and prints its own words.
namespace halvo::RecordingCommands {

int show();
/// `length` as `pauseEnd` reads it; blank: until the person resumes.
int pause(const std::string& length);
int resume();
/// "full" or "compact".
int choose(const std::string& quality);

/// When a pause ends that lasts "15m", "2h" or "1h30m", or "until 16:30", "until 4:30pm" (the next time that the clock says so). Absent for
/// anything else, and for no length at all.
std::optional<std::int64_t> pauseEnd(std::string_view length, std::int64_t nowMs, const Calendar& calendar);

}  // namespace halvo::RecordingCommands
