#pragma once

#include <cstdint>
#include <filesystem>

#include "CaptureShared/Foundation/Calendar.h"

/// A day that nobody had, written as the programs would have written it: for pictures of the windows and tests of them.
namespace halvo::test::InventedDay {

/// The hour the day has come to: 15:40 on 4 March 2026.
std::int64_t nowMs(const Calendar& calendar);

/// Samples, verdicts, gate decisions, events, memory, notes and corrections of that day up to `nowMs`.
void write(const std::filesystem::path& root, const Calendar& calendar);
/// A review of three of its moments, left where the first one's verdict was just revealed.
void leaveReview(const std::filesystem::path& root, const Calendar& calendar);

}  // namespace halvo::test::InventedDay
