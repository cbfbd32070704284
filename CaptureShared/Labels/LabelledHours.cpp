#include "CaptureShared/Labels/LabelledHours.h"

#include <algorithm>

#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Foundation/WallHour.h"
#include "CaptureShared/Signals/SQLiteDB.h"

namespace halvo::LabelledHours {

namespace {

namespace fs = std::filesystem;

constexpr std::int64_t maxMarginMs = std::int64_t{maxHoursPerLabel / 2 - 1} * 3'600'000;
/// The years 0 to 9999: no hour outside them can name a file.
constexpr std::int64_t firstMs = -62'167'219'200'000, lastMs = 253'402'300'799'999;

void addHours(const Span& span, const Calendar& calendar, std::set<std::string>& hours) {
  auto at = span.fromMs;
  for (int count = 0; at <= span.toMs && count < maxHoursPerLabel; ++count, at = WallHour::nextChange(at, calendar))
    hours.insert(WallHour::prefix(at, calendar));
}

/// Read as text, since a number would be made of anything.
std::optional<std::int64_t> time(const SQLiteDB::Statement& row, int column) {
  const auto text = row.optionalText(column);
  const auto value = text ? Text::parseInteger(*text) : std::nullopt;
  return value ? std::optional(std::clamp(*value, firstMs, lastMs)) : std::nullopt;
}

/// The hour of a label's moment, on a clock where it was written: as times of a clock that is never moved. Old rows tell none.
std::optional<WallHour::Span> namedHour(const std::string& sourceHour) {
  constexpr std::string_view writer = "inapp:";
  return sourceHour.starts_with(writer) ? WallHour::span(std::string_view(sourceHour).substr(writer.size()), Calendar::utc()) : std::nullopt;
}

}  // namespace

std::optional<Hours> sourceHours(const Query& query) {
  std::error_code error;
  const auto type = fs::symlink_status(query.database, error).type();
  if (type == fs::file_type::not_found) {
    if (!fs::is_directory(query.database.parent_path(), error)) return std::nullopt;
    return Hours();
  }
  const auto lookback = std::clamp<std::int64_t>(query.lookbackMs, 0, maxMarginMs);
  const auto lookahead = std::clamp<std::int64_t>(query.lookaheadMs, 0, maxMarginMs);
  try {
    Hours hours;
    const SQLiteDB db(query.database, SQLiteDB::Role::reader);
    auto rows = db.prepare("SELECT t0_ms, t1_ms FROM labels;");
    while (rows.step()) {
      const auto t0 = time(rows, 0), t1 = time(rows, 1);
      if (!t0 || !t1) return std::nullopt;
      hours.spans.push_back({std::min(*t0, *t1) - lookback, std::max(*t0, *t1) + lookahead});
      addHours(hours.spans.back(), query.calendar, hours.prefixes);
    }
    auto names = db.prepare("SELECT DISTINCT source_hour FROM labels;");
    while (names.step())
      if (const auto hour = namedHour(names.optionalText(0).value_or("")))
        addHours({hour->startMs - lookback, hour->endMs - 1 + lookahead}, Calendar::utc(), hours.prefixes);
    return hours;
  } catch (const SQLiteError&) {
    return std::nullopt;
  }
}

}  // namespace halvo::LabelledHours
