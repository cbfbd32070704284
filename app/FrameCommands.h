#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "CaptureShared/Foundation/Calendar.h"

/// What was recorded. Each command answers the exit status and prints its own words.
namespace halvo::FrameCommands {

/// "14:05", "yesterday 14:05" or "2026-11-25 14:05", each with or without seconds, in the calendar's zone; absent for anything else.
std::optional<std::int64_t> moment(std::string_view text, std::int64_t nowMs, const Calendar& calendar);

struct Request {
  std::string time = {};
  std::optional<std::filesystem::path> output = {};  ///< absent: a name of the moment's own in the current folder
  int display = 0;
};
/// Writes the frame of a moment as a PNG and prints its path.
int frame(const Request& request);
/// Writes a copy of the moment's hour file that any player opens, and prints its path and where in it the moment is.
int play(const Request& request);

}  // namespace halvo::FrameCommands
