#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include <date/date.h>
#include <fmt/format.h>

#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Foundation/WallHour.h"
#include "CaptureShared/Recording/Location/DirectoryListingCache.h"
#include "CaptureShared/Recording/Retention/VideoRetention.h"
#include "fuzz/Require.h"

namespace {

using namespace halvo;
using VideoRetention::Verdict;

/// Summer time of an hour and of half an hour, a skipped day, no change at all.
const std::array<Calendar, 4>& zones() {
  static const std::array zones{Calendar::named("America/New_York"), Calendar::named("Australia/Lord_Howe"), Calendar::named("Pacific/Apia"),
                                Calendar::utc()};
  return zones;
}

/// Whether there is such a day, of a text that has the form.
bool isOnCalendar(std::string_view hour) {
  const auto number = [&](std::size_t at, std::size_t count) { return static_cast<int>(*Text::parseInteger(hour.substr(at, count))); };
  const date::year_month_day day(date::year(number(0, 4)), date::month(static_cast<unsigned>(number(5, 2))),
                                 date::day(static_cast<unsigned>(number(8, 2))));
  return day.ok();
}

std::optional<Verdict> verdictAt(std::int64_t nowMs, const std::string& name, const std::set<std::string>& labelled, const Calendar& calendar) {
  const auto plan = VideoRetention::plan({.filenames = {name},
                                          .policy = VideoRetention::DeleteOlderThanDays{0},
                                          .labelledHourPrefixes = labelled,
                                          .nowMs = nowMs,
                                          .calendar = calendar});
  return plan.empty() ? std::nullopt : std::optional(plan.front().verdict);
}

/// The hour's bounds are where the clock begins and ceases to show it, and retention keeps to them.
void checkHour(const std::string& name, const std::string& hour, const Calendar& calendar) {
  const auto span = WallHour::span(hour, calendar);
  require(VideoRetention::hourStartMs(hour, calendar) == (span ? std::optional(span->startMs) : std::nullopt));
  if (!isOnCalendar(hour)) require(!span);
  if (!span) return require(!verdictAt(INT64_MAX / 4, name, {}, calendar));
  require(span->startMs < span->endMs && span->endMs - span->startMs <= 2 * 3'600'000);
  for (const auto inside : {span->startMs, span->endMs - 1}) require(WallHour::prefix(inside, calendar) == hour);
  for (const auto outside : {span->startMs - 1, span->endMs}) require(WallHour::prefix(outside, calendar) != hour);
  require(verdictAt(span->startMs, name, {hour}, calendar) == Verdict::keptCurrentHour);
  require(verdictAt(span->endMs - 1, name, {}, calendar) == Verdict::keptCurrentHour);
  require(verdictAt(span->endMs, name, {}, calendar) == Verdict::delete_);
  require(verdictAt(span->endMs, name, {hour}, calendar) == Verdict::keptLabelled);
}

/// A name by which retention may delete has its one hour, and the locator reads the same from it.
void checkName(std::string_view text) {
  const std::string name(text);
  const auto stem = FrameLocator::hourStem(name);
  if (stem)
    require(FrameLocator::hourStem(fmt::format("{}.mkv", *stem)) == stem && FrameLocator::hourStem(fmt::format("{}.part7.mkv", *stem)) == stem);
  const auto hour = VideoRetention::parseHourPrefix(name);
  for (const auto& calendar : zones())
    if (hour)
      checkHour(name, *hour, calendar);
    else
      require(!verdictAt(INT64_MAX / 4, name, {}, calendar));
  if (!hour) return;
  require(stem && *stem == *hour && WallHour::isPrefix(*hour));
  const auto behind = std::string_view(name).substr(hour->size());
  if (behind != ".mkv") {
    require(behind.starts_with(".part") && behind.ends_with(".mkv"));
    const auto number = behind.substr(5, behind.size() - 9);
    require(!number.empty() && number.find_first_not_of("0123456789") == number.npos);
  }
}

/// The name that a moment's recording gets leads back to an hour that holds the moment.
void checkMoment(std::int64_t ms, unsigned part) {
  constexpr std::int64_t firstMs = 946'684'800'000, spanMs = 100 * 366 * 86'400'000LL;  // the years 2000 to 2100
  const auto at = firstMs + static_cast<std::int64_t>(static_cast<std::uint64_t>(ms) % static_cast<std::uint64_t>(spanMs));
  for (const auto& calendar : zones()) {
    const auto hour = WallHour::prefix(at, calendar);
    require(VideoRetention::parseHourPrefix(fmt::format("{}.part{}.mkv", hour, part)) == hour);
    const auto span = WallHour::span(hour, calendar);
    require(span && span->startMs <= at && at < span->endMs);
    const auto next = WallHour::nextChange(at, calendar);
    require(at < next && next <= span->endMs);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  for (const auto name : Text::split(bytes.substr(0, 400), '\n')) checkName(name);
  if (std::int64_t ms = 0; size >= sizeof ms) {
    std::memcpy(&ms, data, sizeof ms);
    checkMoment(ms, static_cast<unsigned>(size));
  }
  return 0;
}
