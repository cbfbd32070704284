#include "CaptureShared/Foundation/WallHour.h"

#include <algorithm>
#include <numeric>

#include <fmt/format.h>

#include "CaptureShared/Foundation/Text.h"

namespace halvo::WallHour {

namespace {

constexpr std::int64_t hourMs = 3'600'000, dayMs = 24 * hourMs;

std::int64_t offsetMs(std::int64_t ms, const Calendar& calendar) { return std::int64_t{1000} * calendar.fields(ms).offsetSec; }

/// The number that `text` is when it is exactly `digits` digits.
std::optional<int> number(std::string_view text, std::size_t digits) {
  if (text.size() != digits || !std::ranges::all_of(text, [](char c) { return c >= '0' && c <= '9'; })) return std::nullopt;
  return std::accumulate(text.begin(), text.end(), 0, [](int sum, char c) { return sum * 10 + (c - '0'); });
}

struct Named {
  int year = 0, month = 0, day = 0, hour = 0;
};

std::optional<Named> parse(std::string_view text) {
  const auto halves = Text::split(text, 'T');
  if (halves.size() != 2) return std::nullopt;
  const auto date = Text::split(halves[0], '-');
  if (date.size() != 3) return std::nullopt;
  const auto year = number(date[0], 4), month = number(date[1], 2), day = number(date[2], 2), hour = number(halves[1], 2);
  if (!year || !month || !day || !hour || *month < 1 || *month > 12 || *day < 1 || *day > 31 || *hour > 23) return std::nullopt;
  return Named{*year, *month, *day, *hour};
}

}  // namespace

std::string prefix(std::int64_t ms, const Calendar& calendar) {
  const auto at = calendar.fields(ms);
  return fmt::format("{:04}-{:02}-{:02}T{:02}", at.year, at.month, at.day, at.hour);
}

bool isPrefix(std::string_view text) { return parse(text).has_value(); }

std::optional<Span> span(std::string_view text, const Calendar& calendar) {
  const auto named = parse(text);
  if (!named) return std::nullopt;
  const auto start = calendar.instant(named->year, named->month, named->day, named->hour);
  // A day that the month lacks runs into the next one, a skipped hour into the one behind the gap.
  if (prefix(start, calendar) != text) return std::nullopt;
  // The last moment on the clock's face, by the offset before a change of the clock and by the one behind it.
  const auto shown = start + offsetMs(start, calendar);
  const auto lastShown = shown - ((shown % hourMs) + hourMs) % hourMs + hourMs - 1;
  std::optional<std::int64_t> last;
  for (const auto offset : {offsetMs(start - dayMs, calendar), offsetMs(start + dayMs, calendar)})
    if (const auto at = lastShown - offset; offsetMs(at, calendar) == offset) last = std::max(at, last.value_or(at));
  return Span{start, last ? *last + 1 : nextChange(start, calendar)};
}

std::int64_t nextChange(std::int64_t ms, const Calendar& calendar) {
  const auto here = calendar.fields(ms);
  auto changed = ms + hourMs - ((here.minute * 60 + here.second) * 1000 + here.millisecond);
  if (calendar.fields(changed - 1).offsetSec == here.offsetSec) return changed;
  for (auto same = ms; changed - same > 1;) {
    const auto middle = std::midpoint(same, changed);
    (calendar.fields(middle).offsetSec == here.offsetSec ? same : changed) = middle;
  }
  return changed;
}

}  // namespace halvo::WallHour
