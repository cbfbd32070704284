#include "CaptureShared/Signals/SignalsReader.h"

#include <algorithm>
#include <cmath>

#include "CaptureShared/Foundation/Text.h"

namespace halvo {

namespace {

constexpr double samplePeriodSec = 1.5;

constexpr const char* tickColumns = "SELECT ts_ms, frontmost_app, browser_app, browser_title, browser_url, idle_any_sec, declared_task FROM ticks ";

SignalsReader::TickRow tickRow(const SQLiteDB::Statement& row) {
  return {.tsMs = row.integer(0),
          .frontmostApp = row.optionalText(1),
          .browserApp = row.optionalText(2),
          .browserTitle = row.optionalText(3),
          .browserURL = row.optionalText(4),
          .idleAnySec = row.optionalReal(5),
          .declaredTask = row.optionalText(6)};
}

SQLiteDB open(const std::filesystem::path& file) {
  try {
    return SQLiteDB(file, SQLiteDB::Role::reader);
  } catch (const SQLiteError& error) {
    throw SignalsReaderError(SignalsReaderError::Kind::openFailed, error.what());
  }
}

/// Runs a query and hands each row to `take`, which answers whether it wants more.
template <class F>
void each(const SQLiteDB& db, const std::string& sql, const std::vector<SQLiteValue>& params, F&& take) {
  try {
    auto statement = db.prepare(sql);
    statement.bind(params);
    while (statement.step() && take(statement)) {
    }
  } catch (const SQLiteError& error) {
    throw SignalsReaderError(SignalsReaderError::Kind::queryFailed, error.what());
  }
}

/// The one value of a query's one row; absent without a row or when it is null.
std::optional<std::int64_t> oneInteger(const SQLiteDB& db, const std::string& sql, const std::vector<SQLiteValue>& params) {
  std::optional<std::int64_t> value;
  each(db, sql, params, [&](const auto& row) {
    value = row.optionalInteger(0);
    return false;
  });
  return value;
}

}  // namespace

SignalsReader::SignalsReader(const std::filesystem::path& file) : db_(open(file)) {}

std::vector<SignalsReader::AppMinutes> SignalsReader::recentApps(std::int64_t referenceMs, std::int64_t windowMs) const {
  std::vector<AppMinutes> apps;
  each(db_,
       "SELECT frontmost_app, COUNT(*) c FROM ticks WHERE ts_ms > ? AND ts_ms <= ? AND frontmost_app IS NOT NULL GROUP BY frontmost_app ORDER BY "
       "c DESC LIMIT 6",
       {referenceMs - windowMs, referenceMs}, [&](const auto& row) {
         const double minutes = static_cast<double>(row.integer(1)) * samplePeriodSec / 60;
         apps.push_back({row.optionalText(0).value_or(""), std::round(minutes * 10) / 10});
         return true;
       });
  return apps;
}

std::optional<SignalsReader::TickRow> SignalsReader::latestTick(std::optional<std::int64_t> asOfMs) const {
  std::optional<TickRow> tick;
  auto take = [&](const auto& row) {
    tick = tickRow(row);
    return false;
  };
  if (asOfMs)
    each(db_, std::string(tickColumns) + "WHERE ts_ms <= ? ORDER BY ts_ms DESC LIMIT 1", {*asOfMs}, take);
  else
    each(db_, std::string(tickColumns) + "ORDER BY ts_ms DESC LIMIT 1", {}, take);
  return tick;
}

std::optional<SignalsReader::WindowRow> SignalsReader::contentWindow(std::int64_t tsMs, const std::string& ownerName) const {
  std::vector<WindowRow> rows;
  each(db_, "SELECT title, x, y, width, height, layer FROM windows WHERE ts_ms = ? AND owner_name = ? ORDER BY rowid", {tsMs, ownerName},
       [&](const auto& row) {
         rows.push_back({row.optionalText(0), row.real(1), row.real(2), row.real(3), row.real(4), row.integer(5)});
         return true;
       });
  return focusedContentWindow(rows);
}

std::optional<SignalsReader::WindowRow> SignalsReader::focusedContentWindow(const std::vector<WindowRow>& among) {
  auto isContent = [](const WindowRow& row) {
    return row.layer == 0 && row.width >= minContentWindowSide && row.height >= minContentWindowSide;
  };
  auto isTitled = [&](const WindowRow& row) { return isContent(row) && row.title && !Text::isBlank(*row.title); };
  auto found = std::find_if(among.begin(), among.end(), isTitled);
  if (found == among.end()) found = std::find_if(among.begin(), among.end(), isContent);
  if (found == among.end()) found = among.begin();
  return found == among.end() ? std::nullopt : std::optional(*found);
}

std::optional<std::string> SignalsReader::frontmostBundleId(std::int64_t tsMs) const {
  std::optional<std::string> id;
  each(db_, "SELECT frontmost_bundle_id FROM ticks WHERE ts_ms = ?", {tsMs}, [&](const auto& row) {
    id = row.optionalText(0);
    return false;
  });
  return id;
}

std::optional<std::int64_t> SignalsReader::taskDeclaredTsMsFromSQLiteEvents(std::int64_t atOrBeforeMs) const {
  return oneInteger(db_, "SELECT ts_ms FROM events WHERE type = 'task_declared' AND ts_ms <= ? ORDER BY ts_ms DESC LIMIT 1", {atOrBeforeMs});
}

std::optional<SignalsReader::CachedEstimate> SignalsReader::cachedEstimateMinutes(const std::string& declaredText) const {
  // The table comes with the first estimate; before that nothing is cached.
  if (!oneInteger(db_, "SELECT 1 FROM sqlite_master WHERE type = 'table' AND name = 'estimate_cache'", {})) return std::nullopt;
  std::optional<CachedEstimate> found;
  each(db_, "SELECT estimated_minutes FROM estimate_cache WHERE declared_task = ?", {declaredText}, [&](const auto& row) {
    found = CachedEstimate{row.optionalReal(0)};
    return false;
  });
  return found;
}

bool SignalsReader::isPresent(const TickRow& row, double idleAwaySec) {
  return row.idleAnySec.value_or(0) <= idleAwaySec && !(row.frontmostApp && Text::equalsIgnoringCase(*row.frontmostApp, "loginwindow"));
}

SignalsReader::PresenceGapResult SignalsReader::presenceGap(const PresenceGapQuery& query) const {
  const auto rows = ticksBackward(query.beforeMs, query.beforeMs - query.withinMs, query.limit);
  std::optional<std::int64_t> runStartMs;
  for (const auto& row : rows) {
    if (!isPresent(row, query.idleAwaySec)) return Gap{{row, runStartMs.value_or(query.beforeMs)}};
    if (runStartMs && *runStartMs - row.tsMs > query.maxContinuityGapMs) return Gap{{row, *runStartMs}};
    runStartMs = row.tsMs;
  }
  if (!runStartMs) return ContinuouslyPresent{};
  if (static_cast<int>(rows.size()) >= query.limit) return GapExceedsWindow{*runStartMs};
  // Rows older than the bound exist: the run reaches it. Without any, the person was there for all there is.
  const bool olderExist = oneInteger(db_, "SELECT 1 FROM ticks WHERE ts_ms < ? LIMIT 1", {query.beforeMs - query.withinMs}).has_value();
  if (olderExist) return GapExceedsWindow{*runStartMs};
  return ContinuouslyPresent{};
}

std::vector<SignalsReader::TickRow> SignalsReader::ticks(std::int64_t fromMs, std::int64_t toMs, int limit) const {
  std::vector<TickRow> rows;
  each(db_, std::string(tickColumns) + "WHERE ts_ms >= ? AND ts_ms <= ? ORDER BY ts_ms LIMIT ?", {fromMs, toMs, std::int64_t{limit}},
       [&](const auto& row) {
         rows.push_back(tickRow(row));
         return true;
       });
  return rows;
}

std::vector<SignalsReader::TickRow> SignalsReader::ticksBackward(std::int64_t beforeMs, std::int64_t notBeforeMs, int limit) const {
  std::vector<TickRow> rows;
  each(db_, std::string(tickColumns) + "WHERE ts_ms <= ? AND ts_ms >= ? ORDER BY ts_ms DESC LIMIT ?", {beforeMs, notBeforeMs, std::int64_t{limit}},
       [&](const auto& row) {
         rows.push_back(tickRow(row));
         return true;
       });
  return rows;
}

std::optional<SignalsReader::Extent> SignalsReader::maxWindowExtent(std::int64_t fromTsMs, std::int64_t toMs) const {
  std::optional<Extent> extent;
  each(db_, "SELECT MAX(x + width), MAX(y + height) FROM windows WHERE ts_ms >= ? AND ts_ms <= ?", {fromTsMs, toMs}, [&](const auto& row) {
    if (!row.isNull(0)) extent = Extent{row.real(0), row.real(1)};
    return false;
  });
  return extent;
}

std::vector<SignalsReader::BatteryHistoryRow> SignalsReader::batteryHistory(std::int64_t sinceMs, int limit) const {
  std::vector<BatteryHistoryRow> rows;
  each(db_, "SELECT ts_ms, battery_pct, ac_plugged FROM ticks WHERE ts_ms >= ? AND battery_pct IS NOT NULL ORDER BY ts_ms LIMIT ?",
       {sinceMs, std::int64_t{limit}}, [&](const auto& row) {
         rows.push_back({row.integer(0), row.optionalInteger(1), row.optionalInteger(2)});
         return true;
       });
  return rows;
}

std::optional<std::int64_t> SignalsReader::latestNonEmptyWindowTitleMs(std::int64_t sinceMs) const {
  return oneInteger(db_, "SELECT MAX(ts_ms) FROM windows WHERE ts_ms >= ? AND title IS NOT NULL AND title <> ''", {sinceMs});
}

std::optional<SignalsReader::FrontmostAppTick> SignalsReader::latestTickMs(const std::vector<std::string>& frontmostAppIn,
                                                                         std::int64_t sinceMs) const {
  std::vector<SQLiteValue> params{sinceMs};
  std::string marks;
  for (const auto& app : frontmostAppIn) {
    params.emplace_back(app);
    marks += marks.empty() ? "?" : ", ?";
  }
  std::optional<FrontmostAppTick> found;
  each(db_, "SELECT ts_ms, frontmost_app FROM ticks WHERE ts_ms >= ? AND frontmost_app IN (" + marks + ") ORDER BY ts_ms DESC LIMIT 1", params,
       [&](const auto& row) {
         found = FrontmostAppTick{row.integer(0), row.optionalText(1).value_or("")};
         return false;
       });
  return found;
}

std::optional<std::int64_t> SignalsReader::latestNonEmptyBrowserTabMs(std::int64_t sinceMs) const {
  return oneInteger(db_, "SELECT MAX(ts_ms) FROM ticks WHERE ts_ms >= ? AND browser_title IS NOT NULL AND browser_title <> ''", {sinceMs});
}

}  // namespace halvo
