#include "CaptureShared/Signals/Schema.h"

#include <algorithm>
#include <string>

namespace halvo::Schema {

namespace {

constexpr const char* createTicks =
    "CREATE TABLE IF NOT EXISTS ticks (\n"
    "    ts_ms INTEGER PRIMARY KEY, frontmost_app TEXT, frontmost_bundle_id TEXT,\n"
    "    idle_key_sec REAL, idle_mouse_sec REAL, idle_any_sec REAL, mouse_x REAL, mouse_y REAL,\n"
    "    browser_app TEXT, browser_title TEXT, browser_url TEXT,\n"
    "    now_playing_title TEXT, now_playing_artist TEXT, now_playing_state TEXT,\n"
    "    screen_locked INTEGER, screensaver_active INTEGER, clamshell_closed INTEGER,\n"
    "    battery_pct INTEGER, ac_plugged INTEGER, declared_task TEXT)";
constexpr const char* createWindows =
    "CREATE TABLE IF NOT EXISTS windows (\n"
    "    ts_ms INTEGER, owner_name TEXT, owner_pid INTEGER, title TEXT, layer INTEGER,\n"
    "    x REAL, y REAL, width REAL, height REAL, is_fullscreen INTEGER);\n"
    "CREATE INDEX IF NOT EXISTS idx_windows_ts ON windows (ts_ms)";
constexpr const char* createEvents =
    "CREATE TABLE IF NOT EXISTS events (ts_ms INTEGER, type TEXT NOT NULL, detail TEXT);\n"
    "CREATE INDEX IF NOT EXISTS idx_events_ts ON events (ts_ms)";

bool has(const std::vector<std::string>& names, std::string_view name) { return std::find(names.begin(), names.end(), name) != names.end(); }

}  // namespace

bool createAll(SQLiteDB& db) {
  db.exec(createTicks);
  db.exec(createWindows);
  db.exec(createEvents);
  return ensureBatteryTelemetryColumns(db);
}

bool ensureBatteryTelemetryColumns(SQLiteDB& db) {
  const auto before = db.columnNames("ticks");
  for (const auto column : batteryTelemetryColumns)
    if (!has(before, column)) db.exec("ALTER TABLE ticks ADD COLUMN " + std::string(column) + " INTEGER");
  const auto after = db.columnNames("ticks");
  return std::all_of(batteryTelemetryColumns.begin(), batteryTelemetryColumns.end(), [&](std::string_view column) { return has(after, column); });
}

}  // namespace halvo::Schema
