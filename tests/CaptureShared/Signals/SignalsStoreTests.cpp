#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include <fmt/format.h>

#include "CaptureShared/Signals/CaptureWindowReader.h"
#include "CaptureShared/Signals/SQLiteDB.h"
#include "CaptureShared/Signals/Schema.h"
#include "CaptureShared/Signals/SignalsReader.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {

namespace fs = std::filesystem;
using Role = SQLiteDB::Role;

/// A database with the sampler's tables, filled by hand.
class Store : public ::testing::Test {
 protected:
  Store() { Schema::createAll(db_); }
  void tick(std::int64_t tsMs, std::optional<std::string> app, std::optional<double> idleSec = 0.0) {
    db_.insert("INSERT INTO ticks (ts_ms, frontmost_app, idle_any_sec) VALUES (?, ?, ?)", {tsMs, sqliteValue(app), sqliteValue(idleSec)});
  }
  void window(std::int64_t tsMs, const std::string& owner, const SignalsReader::WindowRow& row) {
    db_.insert("INSERT INTO windows (ts_ms, owner_name, title, layer, x, y, width, height) VALUES (?, ?, ?, ?, ?, ?, ?, ?)",
               {tsMs, owner, sqliteValue(row.title), row.layer, row.x, row.y, row.width, row.height});
  }

  test::TemporaryFolder folder_;
  fs::path file_ = folder_.path() / "signals.sqlite";
  SQLiteDB db_{file_, Role::owner};
};

TEST(Schema, bringsAnOldDatabaseUpAndKeepsItsRows) {
  const test::TemporaryFolder folder;
  SQLiteDB db(folder.path() / "old.sqlite", Role::owner);
  db.run("CREATE TABLE ticks (ts_ms INTEGER PRIMARY KEY, frontmost_app TEXT, battery_update_time_s INTEGER)");
  db.insert("INSERT INTO ticks (ts_ms, frontmost_app) VALUES (?, ?)", {std::int64_t{7}, "Editor"});
  EXPECT_TRUE(Schema::createAll(db));
  const auto columns = db.columnNames("ticks");
  EXPECT_EQ(columns, (std::vector<std::string>{"ts_ms", "frontmost_app", "battery_update_time_s", "battery_voltage_mv",
                                               "battery_instant_amperage_ma", "battery_accumulated_system_load",
                                               "battery_system_load_accumulator_count", "battery_system_power_in_mw",
                                               "battery_full_charge_capacity_mah"}));
  EXPECT_TRUE(Schema::createAll(db));
  EXPECT_EQ(db.columnNames("ticks"), columns);
  auto rows = db.prepare("SELECT frontmost_app, battery_voltage_mv FROM ticks");
  ASSERT_TRUE(rows.step());
  EXPECT_EQ(rows.optionalText(0), "Editor");
  EXPECT_TRUE(rows.isNull(1));
  EXPECT_EQ(fs::status(folder.path() / "old.sqlite").permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(Store, recentAppsCountWhatLiesInTheWindow) {
  tick(1000, "Outside");  // exactly at the open end
  for (int i = 0; i < 41; ++i) tick(1001 + i, "Editor");
  for (int i = 0; i < 3; ++i) tick(2000 + i, "Browser");
  tick(3000, std::nullopt);
  for (int i = 0; i < 5; ++i) tick(4000 + i, fmt::format("Small{}", i));
  tick(5000, "Browser");  // exactly at the closed end
  tick(5001, "Later");
  const SignalsReader reader(file_);
  const auto apps = reader.recentApps(5000, 4000);
  ASSERT_EQ(apps.size(), 6u);
  EXPECT_EQ(apps[0], (SignalsReader::AppMinutes{"Editor", 1.0}));  // 41 samples of 1.5 s: 1.025 minutes
  EXPECT_EQ(apps[1], (SignalsReader::AppMinutes{"Browser", 0.1}));

  const auto summary = CaptureWindowReader::read({.signalsPath = file_, .asOfMs = 5000, .windowMinutes = 15});
  ASSERT_TRUE(summary);
  EXPECT_EQ(summary->frontmostNow, "Browser");
  EXPECT_EQ(summary->appShares.front().minutes, 1.0);
  EXPECT_EQ(CaptureWindowReader::read({.signalsPath = file_, .asOfMs = 5001 + 15 * 60'000, .windowMinutes = 15})->frontmostNow,
            std::nullopt);
  EXPECT_EQ(CaptureWindowReader::read({.signalsPath = folder_.path() / "none"}), std::nullopt);
}

TEST_F(Store, theOtherQueries) {
  tick(10, "A", std::nullopt);
  tick(20, "B");
  db_.run(
      "UPDATE ticks SET frontmost_bundle_id = 'org.b', browser_app = 'B', browser_title = 'T', browser_url = 'U', declared_task = 'D', "
      "battery_pct = 80, "
      "ac_plugged = 0 WHERE ts_ms = 20");
  db_.run(
      "INSERT INTO events (ts_ms, type, detail) VALUES (5, 'task_declared', '{}'), (15, 'task_declared', '{}'), (17, 'task_cleared', "
      "'{}')");
  window(20, "B", {.title = "x", .x = 100, .y = 50, .width = 800, .height = 600});
  window(20, "B", {.title = "", .x = 0, .y = 0, .width = 10, .height = 900});
  const SignalsReader reader(file_);
  const SignalsReader::TickRow second{
      .tsMs = 20, .frontmostApp = "B", .browserApp = "B", .browserTitle = "T", .browserURL = "U", .idleAnySec = 0, .declaredTask = "D"};
  EXPECT_EQ(reader.latestTick(), second);
  EXPECT_EQ(reader.latestTick(19), (SignalsReader::TickRow{.tsMs = 10, .frontmostApp = "A"}));
  EXPECT_EQ(reader.latestTick(9), std::nullopt);
  EXPECT_EQ(reader.ticks(10, 20, 1).front().tsMs, 10);
  EXPECT_EQ(reader.frontmostBundleId(20), "org.b");
  EXPECT_EQ(reader.taskDeclaredTsMsFromSQLiteEvents(15), 15);
  EXPECT_EQ(reader.taskDeclaredTsMsFromSQLiteEvents(14), 5);
  EXPECT_EQ(reader.maxWindowExtent(0, 20), (SignalsReader::Extent{900, 900}));
  EXPECT_EQ(reader.contentWindow(20, "B")->title, "x");
  EXPECT_EQ(reader.batteryHistory(0, 9), (std::vector<SignalsReader::BatteryHistoryRow>{{20, 80, 0}}));
  EXPECT_EQ(reader.latestNonEmptyWindowTitleMs(0), 20);
  EXPECT_EQ(reader.latestNonEmptyBrowserTabMs(0), 20);
  EXPECT_EQ(reader.latestTickMs({"A", "Z"}, 0), (SignalsReader::FrontmostAppTick{10, "A"}));

  EXPECT_EQ(reader.cachedEstimateMinutes("t"), std::nullopt) << "no table yet";
  db_.run("CREATE TABLE estimate_cache (declared_task TEXT PRIMARY KEY, estimated_minutes REAL, reason TEXT, parsed_at_ms INTEGER)");
  db_.run("INSERT INTO estimate_cache VALUES ('t', 45, '', 1), ('none', NULL, '', 1)");
  EXPECT_EQ(reader.cachedEstimateMinutes("t"), SignalsReader::CachedEstimate{45.0});
  EXPECT_EQ(reader.cachedEstimateMinutes("none"), SignalsReader::CachedEstimate{});
  EXPECT_EQ(reader.cachedEstimateMinutes("other"), std::nullopt);
}

TEST(SignalsReader, focusedContentWindow) {
  using Row = SignalsReader::WindowRow;
  const Row tiny{.title = "tip", .width = 59, .height = 500}, blank{.title = " \n", .width = 900, .height = 60},
      none{.width = 800, .height = 600}, titled{.title = "Essay", .width = 60, .height = 60},
      dock{.title = "Dock", .width = 900, .height = 900, .layer = 25};
  const struct { const char* name; std::vector<Row> rows; std::optional<Row> want; } cases[] = {
      {"nothing", {}, {}},
      {"the first with a title", {dock, tiny, blank, none, titled, {.title = "Behind", .width = 900, .height = 900}}, titled},
      {"without a title the first of content size", {dock, tiny, blank, none}, blank},
      {"only small and docked ones: the first of all", {dock, tiny}, dock}};
  for (const auto& c : cases) EXPECT_EQ(SignalsReader::focusedContentWindow(c.rows), c.want) << c.name;
}

TEST_F(Store, presenceGap) {
  using R = SignalsReader;
  const auto row = [](std::int64_t ts, std::optional<std::string> app = "Editor", std::optional<double> idle = 0.0) {
    return R::TickRow{.tsMs = ts, .frontmostApp = std::move(app), .idleAnySec = idle};
  };
  const auto gap = [](const R::TickRow& before, std::int64_t start) { return R::PresenceGapResult(R::Gap{{before, start}}); };
  const struct { const char* name; std::vector<R::TickRow> rows; R::PresenceGapResult want; int limit = 100;
  } cases[] = {
      {"no rows", {}, R::ContinuouslyPresent{}},
      {"present for all there is", {row(60'000), row(70'000), row(80'000, "Editor", 180), row(90'000, {}, {})}, R::ContinuouslyPresent{}},
      {"idle just too long",
       {row(60'000), row(70'000, "Editor", 180.1), row(80'000), row(90'000)},
       gap(row(70'000, "Editor", 180.1), 80'000)},
      {"the lock screen in any case", {row(80'000, "LoginWindow"), row(90'000)}, gap(row(80'000, "LoginWindow"), 90'000)},
      {"absent now: the run is empty", {row(80'000), row(100'000, "loginwindow")}, gap(row(100'000, "loginwindow"), 100'000)},
      {"a jump of exactly the bound goes on", {row(70'000), row(90'000)}, R::ContinuouslyPresent{}},
      {"a longer jump ends the run", {row(69'999), row(90'000)}, gap(row(69'999), 90'000)},
      {"the run reaches the bound of time", {row(45'000), row(55'000), row(70'000), row(90'000)}, R::GapExceedsWindow{55'000}},
      {"the run reaches the bound of rows", {row(70'000), row(80'000), row(90'000)}, R::GapExceedsWindow{80'000}, 2},
      {"rows behind the moment do not count", {row(90'000), row(100'001, "loginwindow")}, R::ContinuouslyPresent{}},
  };
  for (const auto& c : cases) {
    db_.run("DELETE FROM ticks");
    for (const auto& r : c.rows) tick(r.tsMs, r.frontmostApp, r.idleAnySec);
    EXPECT_EQ(SignalsReader(file_).presenceGap({.beforeMs = 100'000, .withinMs = 50'000, .maxContinuityGapMs = 20'000, .limit = c.limit}),
              c.want)
        << c.name;
  }
}

TEST_F(Store, readersOnlyReadAndFailByType) {
  tick(1, "A");
  SQLiteDB readOnly(file_, Role::reader);
  EXPECT_THROW(readOnly.insert("INSERT INTO ticks (ts_ms) VALUES (2)", {}), SQLiteError);

  const auto kindOf = [](const fs::path& file) -> std::optional<SignalsReaderError::Kind> {
    try {
      SignalsReader(file).latestTick();
      return std::nullopt;
    } catch (const SignalsReaderError& error) {
      EXPECT_STRNE(error.what(), "");
      return error.kind();
    }
  };
  EXPECT_EQ(kindOf(file_), std::nullopt);
  EXPECT_EQ(kindOf(folder_.path() / "absent"), SignalsReaderError::Kind::openFailed);
  EXPECT_FALSE(fs::exists(folder_.path() / "absent"));
  folder_.write("garbage", std::string(5000, 'g'));
  EXPECT_EQ(kindOf(folder_.path() / "garbage"), SignalsReaderError::Kind::queryFailed);
  folder_.write("empty", "");
  EXPECT_EQ(kindOf(folder_.path() / "empty"), SignalsReaderError::Kind::queryFailed);
  try {
    SQLiteDB db(folder_.path() / "garbage", Role::owner);
    FAIL();
  } catch (const SQLiteError& error) {
    EXPECT_TRUE(error.isCorrupt());
  }
  EXPECT_EQ(fs::file_size(folder_.path() / "garbage"), 5000u);
}

TEST_F(Store, aWriterAtWorkDisturbsNoReaderAndNoOtherWriter) {
  std::atomic<bool> stop = false;
  std::jthread sampler([&] {
    for (std::int64_t ts = 1; !stop; ++ts)
      db_.transaction([&] { tick(ts, "A"), window(ts, "A", {.title = "t", .width = 100, .height = 100}); });
  });
  const SignalsReader reader(file_);
  SQLiteDB other(file_, Role::writer);
  std::int64_t newest = 0;
  for (int i = 0; i < 200; ++i) {
    other.insert("INSERT INTO events (ts_ms, type) VALUES (?, 'task_declared')", {std::int64_t{i}});
    const auto latest = reader.latestTick();
    if (!latest) continue;
    EXPECT_GE(latest->tsMs, newest);
    newest = latest->tsMs;
    EXPECT_TRUE(reader.contentWindow(newest, "A")) << "a tick without its windows was seen";
  }
  EXPECT_EQ(reader.taskDeclaredTsMsFromSQLiteEvents(1000), 199);
  stop = true;
}

}  // namespace
}  // namespace halvo
