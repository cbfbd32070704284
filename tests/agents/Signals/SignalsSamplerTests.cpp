#include "agents/Signals/SignalsSampler.h"

#include <algorithm>
#include <cmath>
#include <csignal>
#include <fstream>

#include <gtest/gtest.h>
#include <sys/resource.h>

#include "CaptureShared/Foundation/FileHandle.h"
#include "Platform/Testing/FakePlatform.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {

namespace fs = std::filesystem;

/// A desktop that takes its time over a look.
class SlowProbes : public FakeDesktopProbes {
 public:
  std::function<void()> meanwhile;
  DesktopSample sample() override {
    if (meanwhile) meanwhile();
    return FakeDesktopProbes::sample();
  }
};

class SignalsSamplerTest : public testing::Test {
 protected:
  SignalsSampler::Ports ports() {
    return {.probes = probes,
            .nowPlaying = player,
            .clock = {[this] { return nowMs; },
                      [this](double sec, const std::stop_token&) {
                        nowMs += std::llround(sec * 1000);
                        if (--waitsLeft == 0) stop.request_stop();
                      }},
            .root = [this] { return root; },
            .declaredTask = [this] { return task; },
            .log = [this](const std::string& line) { log.push_back(line); }};
  }
  /// One column of a query as text, "NULL" for null, joined by blanks row after row.
  std::string query(const std::string& sql) {
    SQLiteDB db(database, SQLiteDB::Role::reader);
    auto statement = db.prepare(sql);
    std::string all;
    while (statement.step()) all += (all.empty() ? "" : " ") + statement.optionalText(0).value_or("NULL");
    return all;
  }
  std::vector<fs::path> setAside() {
    std::vector<fs::path> found;
    for (const auto& entry : fs::directory_iterator(folder.path()))
      if (entry.path().filename().string().starts_with("signals.sqlite.corrupt-")) found.push_back(entry.path());
    std::sort(found.begin(), found.end());
    return found;
  }

  test::TemporaryFolder folder;
  fs::path database = folder.path() / "signals.sqlite";
  SlowProbes probes;
  FakeNowPlaying player;
  std::int64_t nowMs = 1'700'000'000'000;
  int waitsLeft = 1;
  std::stop_source stop;
  SignalsSampler::Root root{.database = database};
  std::optional<std::string> task;
  std::vector<std::string> log;
};

TEST_F(SignalsSamplerTest, aRowHoldsAllThatWasSeen) {
  probes.now = {.frontmostApp = FrontmostApp{.name = "gedit", .bundleID = "org.gnome.gedit", .pid = 7},
                .windows = std::vector<WindowInfo>{{.ownerName = "gedit", .ownerPID = 7, .title = "essay „eins“", .bounds = {1, 2, 3, 4}},
                                                   {.ownerName = "mpv", .layer = 25, .bounds = {5, 6, 7, 8}, .isFullscreen = true}},
                .idle = {.key = 1.5, .mouse = 0.25, .any = 0.25},
                .mouse = Point{.x = 10, .y = 20},
                .clamshellClosed = false,
                .session = {.screensaverActive = true, .screenLocked = false},
                .browserTab = BrowserTab{.browser = "firefox", .title = "Rivers", .url = "https://example.org/"},
                .battery = {.percent = 81, .pluggedIn = true},
                .batteryTelemetry = {.voltageMV = 1, .instantAmperageMA = -2, .updateTimeS = 3, .accumulatedSystemLoad = 4,
                                     .systemLoadAccumulatorCount = 5, .systemPowerInMW = 6, .fullChargeCapacityMAh = 7}};
  player.now = {.title = "Song", .artist = "Singer", .playing = true};
  task = "Task: write the essay\nDeclared: now\n";
  SignalsSampler sampler(ports());
  ASSERT_TRUE(sampler.turn(nowMs));

  const std::pair<const char*, const char*> want[] = {
      {"ts_ms", "1700000000000"}, {"frontmost_app", "gedit"}, {"frontmost_bundle_id", "org.gnome.gedit"},
      {"idle_key_sec", "1.5"}, {"idle_mouse_sec", "0.25"}, {"idle_any_sec", "0.25"}, {"mouse_x", "10.0"}, {"mouse_y", "20.0"},
      {"browser_app", "firefox"}, {"browser_title", "Rivers"}, {"browser_url", "https://example.org/"},
      {"now_playing_title", "Song"}, {"now_playing_artist", "Singer"}, {"now_playing_state", "playing"},
      {"screen_locked", "0"}, {"screensaver_active", "1"}, {"clamshell_closed", "0"}, {"battery_pct", "81"}, {"ac_plugged", "1"},
      {"declared_task", "Task: write the essay\nDeclared: now"},
      {"battery_voltage_mv", "1"}, {"battery_instant_amperage_ma", "-2"}, {"battery_update_time_s", "3"},
      {"battery_accumulated_system_load", "4"}, {"battery_system_load_accumulator_count", "5"},
      {"battery_system_power_in_mw", "6"}, {"battery_full_charge_capacity_mah", "7"}};
  for (const auto& [column, value] : want) EXPECT_EQ(query("SELECT " + std::string(column) + " FROM ticks"), value) << column;
  EXPECT_EQ(SQLiteDB(database, SQLiteDB::Role::reader).columnNames("ticks").size(), std::size(want));
  EXPECT_EQ(query("SELECT ts_ms||'|'||owner_name||'|'||ifnull(owner_pid,'-')||'|'||title||'|'||layer||'|'||x||'|'||y||'|'||width||'|'||"
                  "height||'|'||is_fullscreen FROM windows ORDER BY rowid"),
            "1700000000000|gedit|7|essay „eins“|0|1.0|2.0|3.0|4.0|0 1700000000000|mpv|-||25|5.0|6.0|7.0|8.0|1");
}

TEST_F(SignalsSamplerTest, whatIsUnknownIsNullAndTheRowIsWrittenAllTheSame) {
  task = " \n";
  SignalsSampler sampler(ports());
  ASSERT_TRUE(sampler.turn(nowMs));
  for (const auto& column : SQLiteDB(database, SQLiteDB::Role::reader).columnNames("ticks"))
    EXPECT_EQ(query("SELECT " + column + " FROM ticks"), column == "ts_ms" ? "1700000000000" : "NULL") << column;
  EXPECT_EQ(query("SELECT count(*) FROM windows"), "0");
}

TEST_F(SignalsSamplerTest, theScheduleNeitherDriftsNorMakesUp) {
  int look = 0;
  const std::int64_t start = nowMs;
  probes.meanwhile = [&] {
    switch (++look) {
      case 2: nowMs += 400; break;        // a slow look doesn't put off the next one
      case 4: nowMs += 8'000; break;      // one of 8 s, as over a sleep: no burst afterwards
      case 6: nowMs -= 3'600'000; break;  // the clock is set back an hour: sampling goes on at once
      default: break;
    }
  };
  waitsLeft = 8;
  SignalsSampler sampler(ports());
  sampler.run(stop.get_token());
  const auto at = [&](std::int64_t ms) { return std::to_string(start + ms); };
  EXPECT_EQ(query("SELECT ts_ms FROM ticks ORDER BY rowid"), at(15'500 + 1'500 - 3'600'000) + " " + at(15'500 + 3'000 - 3'600'000) + " " +
                                                                 at(0) + " " + at(1'500) + " " + at(3'000) + " " + at(4'500) + " " +
                                                                 at(14'000) + " " + at(15'500));
}

TEST_F(SignalsSamplerTest, withoutARootNothingIsRecordedOrMade) {
  const auto missing = folder.path() / "volume";
  root = {.whyNot = "configured data root (/volume) isn't mounted"};
  SignalsSampler sampler(ports());
  for (int i = 0; i < 3; ++i) EXPECT_FALSE(sampler.turn(nowMs += 1'500));
  EXPECT_EQ(probes.samples, 0) << "nobody is looked at for nothing";
  EXPECT_EQ(log, std::vector<std::string>{"recording nothing: configured data root (/volume) isn't mounted"});
  // Available by its word, gone by the time of the write: the folder is not made.
  root = {.database = missing / "signals.sqlite"};
  EXPECT_FALSE(sampler.turn(nowMs += 1'500));
  EXPECT_FALSE(fs::exists(missing));
  fs::create_directory(missing);
  EXPECT_TRUE(sampler.turn(nowMs += 1'500));
  EXPECT_EQ(log.back(), "recording again");
}

TEST_F(SignalsSamplerTest, aDamagedDatabaseIsSetAsideWhole) {
  folder.write("signals.sqlite", "this was never a database, and yet somebody's");
  folder.write("signals.sqlite-wal", "its log");
  {
    SignalsSampler sampler(ports());
    ASSERT_TRUE(sampler.turn(nowMs));
  }
  auto aside = setAside();
  ASSERT_EQ(aside.size(), 2u);
  EXPECT_EQ(readFile(aside[0]), "this was never a database, and yet somebody's");
  EXPECT_EQ(readFile(aside[1]), "its log");
  EXPECT_TRUE(aside[1].string().ends_with("-wal"));
  ASSERT_EQ(log.size(), 1u);
  EXPECT_EQ(log[0], database.string() + " is damaged — set aside as " + aside[0].filename().string() + ", beginning it anew");

  // Its pages overwritten behind the header, found only when a row is written.
  const auto size = fs::file_size(database);
  std::fstream(database, std::ios::in | std::ios::out | std::ios::binary).seekp(4096) << std::string(size - 4096, '\xEE');
  SignalsSampler sampler(ports());
  EXPECT_TRUE(sampler.turn(nowMs)) << "the same moment again: neither name is used twice";
  EXPECT_EQ(query("SELECT count(*) FROM ticks"), "1");
  aside = setAside();
  EXPECT_TRUE(std::any_of(aside.begin(), aside.end(), [&](const fs::path& file) { return fs::file_size(file) == size; }));
}

TEST_F(SignalsSamplerTest, aDatabaseDamagedUnderItsWriterIsFoundOut) {
  SignalsSampler sampler(ports());
  ASSERT_TRUE(sampler.turn(nowMs));
  for (const auto* companion : {"", "-wal"}) {
    const auto size = fs::file_size(database.string() + companion);
    std::fstream(database.string() + companion, std::ios::in | std::ios::out | std::ios::binary) << std::string(size, 'x');
  }
  for (int turn = 0; turn < SignalsStore::samplesPerLook; ++turn) ASSERT_TRUE(sampler.turn(nowMs += 1'500));
  ASSERT_EQ(log.size(), 1u) << "set aside, and nothing else";
  EXPECT_NE(log[0].find("is damaged — set aside as"), std::string::npos) << log[0];
  EXPECT_EQ(query("PRAGMA integrity_check"), "ok");
  EXPECT_EQ(query("SELECT max(ts_ms) FROM ticks"), std::to_string(nowMs));
}

TEST_F(SignalsSamplerTest, aFullDiskIsSaidOnceAndOutlived) {
  SignalsSampler sampler(ports());
  ASSERT_TRUE(sampler.turn(nowMs));
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit before = {};
  ::getrlimit(RLIMIT_FSIZE, &before);
  const rlimit small = {.rlim_cur = 4'096, .rlim_max = before.rlim_max};
  ::setrlimit(RLIMIT_FSIZE, &small);
  const bool first = sampler.turn(nowMs += 1'500), second = sampler.turn(nowMs += 1'500);
  ::setrlimit(RLIMIT_FSIZE, &before);
  EXPECT_FALSE(first);
  EXPECT_FALSE(second);
  EXPECT_TRUE(sampler.turn(nowMs += 1'500));
  ASSERT_EQ(log.size(), 2u);
  EXPECT_TRUE(log[0].starts_with("the disk is full or failing (")) << log[0];
  EXPECT_EQ(log[1], "recording again");
  EXPECT_EQ(query("SELECT count(*) FROM ticks"), "2");
  EXPECT_EQ(query("PRAGMA integrity_check"), "ok");
}

TEST_F(SignalsSamplerTest, aDatabaseTakenAwayIsBegunAnew) {
  SignalsSampler sampler(ports());
  ASSERT_TRUE(sampler.turn(nowMs));
  for (const auto* companion : {"", "-wal", "-shm"}) fs::remove(database.string() + companion);
  ASSERT_TRUE(sampler.turn(nowMs += 1'500));
  EXPECT_EQ(query("SELECT ts_ms FROM ticks"), std::to_string(nowMs));
  EXPECT_EQ(log, std::vector<std::string>{database.string() + " was moved or removed — beginning it anew"});
}

TEST_F(SignalsSamplerTest, twoRowsNeverShareATime) {
  probes.now.windows = std::vector<WindowInfo>{{.ownerName = "gedit"}};
  SignalsSampler sampler(ports());
  ASSERT_TRUE(sampler.turn(nowMs));
  ASSERT_TRUE(sampler.turn(nowMs));
  EXPECT_EQ(query("SELECT ts_ms FROM ticks"), "1700000000000 1700000000001");
  EXPECT_EQ(query("SELECT ts_ms FROM windows"), "1700000000000 1700000000001");
}

}  // namespace
}  // namespace halvo
