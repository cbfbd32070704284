#pragma once

#include <optional>
#include <string>
#include <string_view>

/// Stretches of time as people write them. Pure.
namespace halvo::PracticeDurations {

struct Found {
  double minutes = 0;
  std::string phrase = {};  ///< as it stands in the text, the words that lead up to it ("for like") included
  bool operator==(const Found&) const = default;
};

/// "for 20 min", "1 hour 30 minutes", "a couple hours", "half an hour", "for a bit". The first in the text; absent when it names none.
std::optional<Found> duration(std::string_view text);

/// "until 5:00pm", reckoned from a minute of the day (0 to 1439); negative when that time has passed. A time without am or pm is the next
/// such time within twelve hours. Absent when the text names none.
std::optional<Found> until(std::string_view text, int fromMinuteOfDay);

/// The minute of the day of the first clock time with am or pm, as in "Declared: 2026-03-04 9:15am ET".
std::optional<int> minuteOfDay(std::string_view text);

}  // namespace halvo::PracticeDurations
