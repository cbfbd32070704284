#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Records/EventLogEvent.h"

/// A period of the event log as the numbered lines that a digest is made from. Pure.
namespace halvo::PeriodRendering {

/// Bytes of one period's lines. Like the lists of a regeneration they have to fit half of the smallest context with the instruction.
inline constexpr std::size_t budgetBytes = 18'000;
/// Characters of one line's words: what was pasted into a message is not what was said.
inline constexpr std::size_t lineCap = 1'000;

/// Whether events of this type have a line.
bool contributes(std::string_view type);

struct Rendered {
  std::string text = {};
  std::vector<std::int64_t> lineTsMs = {};  ///< the event behind line 1, 2, ...
  std::size_t leftOut = 0;                  ///< oldest lines for which there was no room
};
struct Period {
  std::int64_t startMs = 0, endMs = 0;  ///< half open
  bool operator==(const Period&) const = default;
};
/// `events` are sorted by time. "(quiet period, nothing logged)" when none of the period's has a line.
Rendered render(std::span<const EventLogEvent> events, const Period& period, const Calendar& calendar, std::size_t maxBytes = budgetBytes);

}  // namespace halvo::PeriodRendering
