#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "AmbitudeAppKit/Entry/CheckIn.h"
#include "CaptureShared/Foundation/Calendar.h"

/// What the system currently believes, for a terminal. Writes nothing, touches no agent, never fails.
namespace halvo::StateDump {

inline constexpr std::size_t recentCount = 8;
inline constexpr std::size_t maxTailBytes = 0x40000;

/// Prints line by line through `print`, which adds the newline.
void run(const std::function<void(const std::string&)>& print, const Calendar& calendar);

/// The last judgments, newest first; empty when the log is missing or unreadable.
std::vector<CheckIn> recentCheckIns(const std::filesystem::path& log);
/// One judgment on one line.
std::string line(const CheckIn& checkIn, const Calendar& calendar);

}  // namespace halvo::StateDump
