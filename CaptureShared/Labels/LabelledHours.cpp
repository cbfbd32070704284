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

struct Range {
  std::int64_t lowMs = 0, highMs = 0;
};

void addHours(const Range& range, const Calendar& calendar, std::set<std::string>& hours) {
  auto at = range.lowMs;
  for (int count = 0; at <= range.highMs && count < maxHoursPerLabel; ++count, at = WallHour::nextChange(at, calendar))
    hours.insert(WallHour::prefix(at, calendar));
}

/// Read as text, since a number would be made of anything.
std::optional<std::int64_t> time(const SQLiteDB::Statement& row, int column) {
  const auto text = row.optionalText(column);
  const auto value = text ? Text::parseInteger(*text) : std::nullopt;
  return value ? std::optional(std::clamp(*value, firstMs, lastMs)) : std::nullopt;
}

}  // namespace

std::optional<std::set<std::string>> sourceHours(const Query& query) {
  std::error_code error;
  const auto type = fs::symlink_status(query.database, error).type();
  if (type == fs::file_type::not_found) {
    if (!fs::is_directory(query.database.parent_path(), error)) return std::nullopt;
    return std::set<std::string>();
  }
  const auto lookback = std::clamp<std::int64_t>(query.lookbackMs, 0, maxMarginMs);
  const auto lookahead = std::clamp<std::int64_t>(query.lookaheadMs, 0, maxMarginMs);
  try {
    std::set<std::string> hours;
    const SQLiteDB db(query.database, SQLiteDB::Role::reader);
    auto rows = db.prepare("SELECT t0_ms, t1_ms FROM labels;");
    while (rows.step()) {
      const auto t0 = time(rows, 0), t1 = time(rows, 1);
      if (!t0 || !t1) return std::nullopt;
      addHours({std::min(*t0, *t1) - lookback, std::max(*t0, *t1) + lookahead}, query.calendar, hours);
    }
    return hours;
  } catch (const SQLiteError&) {
    return std::nullopt;
  }
}

}  // namespace halvo::LabelledHours
