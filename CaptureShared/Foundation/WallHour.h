#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "CaptureShared/Foundation/Calendar.h"

/// Hours of the wall clock, as recordings are named after them. An hour that comes twice in autumn has one name.
namespace halvo::WallHour {

/// "%04d-%02d-%02dT%02d" of the hour that a clock in the zone shows at `ms`, as in "2026-11-16T03".
std::string prefix(std::int64_t ms, const Calendar& calendar);

/// Whether a text has that form, whether or not there is such an hour: "2026-02-31T03" has it.
bool isPrefix(std::string_view text);

struct Span {
  std::int64_t startMs = 0;  ///< the first moment at which a clock shows the hour
  std::int64_t endMs = 0;    ///< behind the last one
  bool operator==(const Span&) const = default;
};
/// Absent for any other text, for a day that no calendar has and for an hour that is skipped in spring.
std::optional<Span> span(std::string_view prefix, const Calendar& calendar);

/// The first moment after `ms` at which the hour is over or the clock is moved: stepping by it misses no hour.
std::int64_t nextChange(std::int64_t ms, const Calendar& calendar);

}  // namespace halvo::WallHour
