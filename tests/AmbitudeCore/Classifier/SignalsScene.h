#pragma once

#include <optional>
#include <string>

#include "CaptureShared/Signals/Schema.h"
#include "CaptureShared/Signals/SQLiteDB.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo::test {

/// A real signals database, filled by hand.
class SignalsScene {
 public:
  explicit SignalsScene(const std::filesystem::path& file) : db_(file, SQLiteDB::Role::owner) { Schema::createAll(db_); }

  struct Sample {
    std::string app = "Editor";
    double idleSec = 1;
    std::optional<std::string> bundleId = {}, browserApp = {}, browserTitle = {}, browserURL = {};
  };
  void sample(std::int64_t tsMs) { sample(tsMs, Sample{}); }
  void sample(std::int64_t tsMs, const Sample& row) {
    db_.insert(
        "INSERT INTO ticks (ts_ms, frontmost_app, frontmost_bundle_id, idle_any_sec, browser_app, browser_title, browser_url) "
        "VALUES (?, ?, ?, ?, ?, ?, ?)",
        {tsMs, row.app, sqliteValue(row.bundleId), row.idleSec, sqliteValue(row.browserApp), sqliteValue(row.browserTitle),
         sqliteValue(row.browserURL)});
  }
  void window(std::int64_t tsMs, const std::string& app, const std::string& title) {
    db_.insert("INSERT INTO windows VALUES (?, ?, 1, ?, 0, 100, 100, 400, 300, 0)", {tsMs, app, title});
  }
  SQLiteDB& db() { return db_; }

 private:
  SQLiteDB db_;
};

}  // namespace halvo::test
