#include "CaptureShared/Foundation/Calendar.h"

#include <array>
#include <chrono>
#include <cstdlib>

#include <date/tz.h>
#include <fmt/format.h>

namespace halvo {

namespace {

constexpr std::array monthNames{"Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

date::sys_time<std::chrono::milliseconds> instantOf(std::int64_t ms) {
  return date::sys_time<std::chrono::milliseconds>(std::chrono::milliseconds(ms));
}

int hour12(int hour) { return hour % 12 == 0 ? 12 : hour % 12; }
const char* half(int hour) { return hour < 12 ? "am" : "pm"; }

}  // namespace

Calendar Calendar::local() {
  if (const char* zone = std::getenv("TZ"); zone && *zone) {
    try {
      return named(*zone == ':' ? zone + 1 : zone);
    } catch (const std::runtime_error&) {
      // A POSIX rule such as "EST5EDT4" names no zone of the database: the machine's own zone is the better guess.
    }
  }
  try {
    return Calendar(date::current_zone());
  } catch (const std::runtime_error&) {
    return utc();
  }
}

Calendar Calendar::utc() { return named("Etc/UTC"); }
Calendar Calendar::named(std::string_view zone) { return Calendar(date::locate_zone(std::string(zone))); }

Calendar::Fields Calendar::fields(std::int64_t ms) const {
  const auto info = zone_->get_info(instantOf(ms));
  const auto local = instantOf(ms).time_since_epoch() + info.offset;
  const auto days = date::floor<date::days>(local);
  const date::year_month_day day{date::sys_days(days)};
  const date::hh_mm_ss<std::chrono::milliseconds> time(std::chrono::duration_cast<std::chrono::milliseconds>(local - days));
  return {.year = static_cast<int>(day.year()),
          .month = static_cast<int>(static_cast<unsigned>(day.month())),
          .day = static_cast<int>(static_cast<unsigned>(day.day())),
          .hour = static_cast<int>(time.hours().count()),
          .minute = static_cast<int>(time.minutes().count()),
          .second = static_cast<int>(time.seconds().count()),
          .millisecond = static_cast<int>(time.subseconds().count()),
          .offsetSec = static_cast<int>(info.offset.count())};
}

std::int64_t Calendar::instant(int year, int month, int day, int hour, int minute) const {
  const auto local = date::local_days(date::year(year) / month / 1) + date::days(day - 1) + std::chrono::hours(hour) + std::chrono::minutes(minute);
  return std::chrono::duration_cast<std::chrono::milliseconds>(zone_->to_sys(local, date::choose::earliest).time_since_epoch()).count();
}

std::int64_t Calendar::nextHour(std::int64_t afterMs, int hour) const {
  const auto today = fields(afterMs);
  const auto candidate = instant(today.year, today.month, today.day, hour);
  return candidate > afterMs ? candidate : instant(today.year, today.month, today.day + 1, hour);
}

std::string Calendar::hourMinute(std::int64_t ms) const {
  const auto f = fields(ms);
  return fmt::format("{}:{:02}", f.hour, f.minute);
}
std::string Calendar::monthDayHourMinute(std::int64_t ms) const {
  const auto f = fields(ms);
  return fmt::format("{} {}, {}:{:02}", monthNames[static_cast<std::size_t>(f.month - 1)], f.day, f.hour, f.minute);
}
std::string Calendar::monthDay2HourMinute(std::int64_t ms) const {
  const auto f = fields(ms);
  return fmt::format("{:02}-{:02} {:02}:{:02}", f.month, f.day, f.hour, f.minute);
}
std::string Calendar::clock12(std::int64_t ms) const {
  const auto f = fields(ms);
  return fmt::format("{}:{:02}{}", hour12(f.hour), f.minute, half(f.hour));
}
std::string Calendar::declared(std::int64_t ms) const {
  const auto f = fields(ms);
  return fmt::format("{:04}-{:02}-{:02} {}:{:02}{}", f.year, f.month, f.day, hour12(f.hour), f.minute, half(f.hour));
}

std::string Calendar::isoMillis(std::int64_t ms) const {
  const auto f = fields(ms);
  auto text = fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:03}", f.year, f.month, f.day, f.hour, f.minute, f.second, f.millisecond);
  if (f.offsetSec == 0) return text + "Z";
  const int minutes = std::abs(f.offsetSec) / 60;
  return text + fmt::format("{}{:02}:{:02}", f.offsetSec < 0 ? '-' : '+', minutes / 60, minutes % 60);
}

namespace ISO8601 {

namespace {

std::string utc(std::int64_t ms, bool withMillis) {
  const auto instant = instantOf(ms);
  const auto days = date::floor<date::days>(instant);
  const date::year_month_day day(days);
  const date::hh_mm_ss<std::chrono::milliseconds> time(instant - days);
  auto text = fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}", static_cast<int>(day.year()), static_cast<unsigned>(day.month()),
                          static_cast<unsigned>(day.day()), time.hours().count(), time.minutes().count(), time.seconds().count());
  if (withMillis) text += fmt::format(".{:03}", time.subseconds().count());
  return text + "Z";
}

/// Reads exactly `digits` digits at `at`; -1 when they are not there.
int number(std::string_view text, std::size_t at, std::size_t digits) {
  if (at + digits > text.size()) return -1;
  int value = 0;
  for (std::size_t i = at; i < at + digits; ++i) {
    if (text[i] < '0' || text[i] > '9') return -1;
    value = value * 10 + (text[i] - '0');
  }
  return value;
}

}  // namespace

std::string utcSeconds(std::int64_t ms) { return utc(ms, false); }
std::string utcMillis(std::int64_t ms) { return utc(ms, true); }

std::optional<std::int64_t> parse(std::string_view text) {
  const int year = number(text, 0, 4), month = number(text, 5, 2), day = number(text, 8, 2);
  const int hour = number(text, 11, 2), minute = number(text, 14, 2), second = number(text, 17, 2);
  if (year < 0 || month < 0 || day < 0 || hour < 0 || minute < 0 || second < 0) return std::nullopt;
  if (text[4] != '-' || text[7] != '-' || text[10] != 'T' || text[13] != ':' || text[16] != ':') return std::nullopt;
  const date::year_month_day date(date::year(year), date::month(static_cast<unsigned>(month)), date::day(static_cast<unsigned>(day)));
  if (!date.ok() || hour > 23 || minute > 59 || second > 60) return std::nullopt;
  std::size_t at = 19;
  std::int64_t millis = 0;
  if (at < text.size() && text[at] == '.') {
    std::int64_t scale = 100;
    const auto first = ++at;
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at, scale /= 10) millis += (text[at] - '0') * scale;
    if (at == first || at - first > 9) return std::nullopt;
  }
  if (at >= text.size()) return std::nullopt;
  std::int64_t offsetMinutes = 0;
  const auto zone = text.substr(at);
  if (zone != "Z") {
    if (zone.front() != '+' && zone.front() != '-') return std::nullopt;
    const bool colon = zone.size() == 6 && zone[3] == ':';
    if (!colon && zone.size() != 5) return std::nullopt;
    const int hours = number(zone, 1, 2), minutes = number(zone, colon ? 4 : 3, 2);
    if (hours < 0 || minutes < 0 || hours > 23 || minutes > 59) return std::nullopt;
    offsetMinutes = (zone.front() == '-' ? -1 : 1) * (hours * 60 + minutes);
  }
  const auto days = date::sys_days(date).time_since_epoch().count();
  return (days * 86'400LL + hour * 3600 + minute * 60 + second - offsetMinutes * 60) * 1000 + millis;
}

}  // namespace ISO8601

}  // namespace halvo
