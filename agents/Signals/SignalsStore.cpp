#include "agents/Signals/SignalsStore.h"

#include <system_error>

#include <fmt/format.h>

#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Signals/Schema.h"

namespace halvo {
namespace {

namespace fs = std::filesystem;

constexpr int constraintViolated = 19;  // SQLITE_CONSTRAINT: the row's time is taken

constexpr const char* insertTick =
    "INSERT INTO ticks (ts_ms, frontmost_app, frontmost_bundle_id, idle_key_sec, idle_mouse_sec, idle_any_sec, mouse_x, mouse_y, "
    "browser_app, browser_title, browser_url, now_playing_title, now_playing_artist, now_playing_state, screen_locked, "
    "screensaver_active, clamshell_closed, battery_pct, ac_plugged, declared_task, battery_voltage_mv, battery_instant_amperage_ma, "
    "battery_update_time_s, battery_accumulated_system_load, battery_system_load_accumulator_count, battery_system_power_in_mw, "
    "battery_full_charge_capacity_mah) VALUES (?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?)";
constexpr const char* insertWindow =
    "INSERT INTO windows (ts_ms, owner_name, owner_pid, title, layer, x, y, width, height, is_fullscreen) VALUES (?,?,?,?,?,?,?,?,?,?)";

SQLiteValue boolean(const std::optional<bool>& value) {
  if (!value) return nullptr;
  return std::int64_t{*value ? 1 : 0};
}

std::vector<SQLiteValue> tickValues(std::int64_t tsMs, const SignalsRow& row) {
  const auto& desktop = row.desktop;
  const auto& battery = desktop.batteryTelemetry;
  const auto of = [](const auto& record, auto field) -> SQLiteValue {
    if (!record) return nullptr;
    return field(*record);
  };
  SQLiteValue playing = nullptr;
  if (row.nowPlaying.playing) playing = std::string(*row.nowPlaying.playing ? "playing" : "paused");
  return {tsMs,
          of(desktop.frontmostApp, [](const FrontmostApp& app) { return SQLiteValue(app.name); }),
          of(desktop.frontmostApp, [](const FrontmostApp& app) { return sqliteValue(app.bundleID); }),
          sqliteValue(desktop.idle.key),
          sqliteValue(desktop.idle.mouse),
          sqliteValue(desktop.idle.any),
          of(desktop.mouse, [](const Point& point) { return SQLiteValue(point.x); }),
          of(desktop.mouse, [](const Point& point) { return SQLiteValue(point.y); }),
          of(desktop.browserTab, [](const BrowserTab& tab) { return SQLiteValue(tab.browser); }),
          of(desktop.browserTab, [](const BrowserTab& tab) { return SQLiteValue(tab.title); }),
          of(desktop.browserTab, [](const BrowserTab& tab) { return sqliteValue(tab.url); }),
          sqliteValue(row.nowPlaying.title),
          sqliteValue(row.nowPlaying.artist),
          std::move(playing),
          boolean(desktop.session.screenLocked),
          boolean(desktop.session.screensaverActive),
          boolean(desktop.clamshellClosed),
          sqliteValue(desktop.battery.percent),
          boolean(desktop.battery.pluggedIn),
          sqliteValue(row.declaredTask),
          sqliteValue(battery.voltageMV),
          sqliteValue(battery.instantAmperageMA),
          sqliteValue(battery.updateTimeS),
          sqliteValue(battery.accumulatedSystemLoad),
          sqliteValue(battery.systemLoadAccumulatorCount),
          sqliteValue(battery.systemPowerInMW),
          sqliteValue(battery.fullChargeCapacityMAh)};
}

std::vector<SQLiteValue> windowValues(std::int64_t tsMs, const WindowInfo& window) {
  return {tsMs,
          window.ownerName,
          sqliteValue(window.ownerPID),
          window.title,
          std::int64_t{window.layer},
          window.bounds.x,
          window.bounds.y,
          window.bounds.width,
          window.bounds.height,
          std::int64_t{window.isFullscreen ? 1 : 0}};
}

/// The file and its companions.
constexpr const char* companions[] = {"", "-wal", "-shm", "-journal"};

/// Whether SQLite must not even look at a file. It deletes the write-ahead log of a database that has no whole page, and with it what was
/// written last, so such a file is recognised before.
bool isNoDatabase(const fs::path& file) {
  constexpr std::size_t smallestPage = 512;
  constexpr std::string_view mark("SQLite format 3\0", 16);
  std::error_code failed;
  const auto size = fs::file_size(file, failed);
  if (failed) return false;
  if (size == 0) return fs::exists(file.string() + "-wal") && fs::file_size(file.string() + "-wal", failed) > 0;
  return size < smallestPage || FileHandle::openForRead(file).readAt(0, mark.size()) != mark;
}

/// A name beside `file` under which neither it nor a companion of it stands.
fs::path freeNameAside(const fs::path& file, std::int64_t tsMs) {
  auto time = Text::replaceAll(ISO8601::utcMillis(tsMs), ":", "");
  for (int attempt = 1;; ++attempt) {
    fs::path aside = file;
    aside += ".corrupt-" + time + (attempt == 1 ? std::string() : fmt::format("-{}", attempt));
    bool taken = false;
    for (const auto* companion : companions) taken = taken || fs::exists(fs::symlink_status(aside.string() + companion));
    if (!taken) return aside;
  }
}

}  // namespace

/// A connection with its statements, and which file it is on.
struct SignalsStore::Open {
  SQLiteDB db;
  std::optional<SQLiteDB::Statement> tick, window;
  FileIdentity identity;

  explicit Open(const fs::path& file) : db(file, SQLiteDB::Role::owner) {
    if (!Schema::createAll(db)) throw SQLiteError(1, "its tables could not be made");
    tick.emplace(db.prepare(insertTick));
    window.emplace(db.prepare(insertWindow));
    identity = FileIdentity::of(file);
  }
  /// Whether the file's name still leads to the file that this writes to.
  bool isStillAt(const fs::path& file) const {
    try {
      const auto now = FileIdentity::of(file);
      return now.device == identity.device && now.inode == identity.inode;
    } catch (const std::system_error&) {
      return false;
    }
  }
};

SignalsStore::SignalsStore(fs::path file, LogSink log) : file_(std::move(file)), log_(std::move(log)) {}
SignalsStore::~SignalsStore() = default;

void SignalsStore::open(std::int64_t tsMs) {
  if (open_ && !open_->isStillAt(file_)) {
    open_.reset();
    if (log_) log_(fmt::format("{} was moved or removed — beginning it anew", file_.string()));
  }
  if (open_) return;
  if (isNoDatabase(file_)) setAside(tsMs);
  try {
    open_ = std::make_unique<Open>(file_);
  } catch (const SQLiteError& error) {
    if (!error.isCorrupt()) throw;
    setAside(tsMs);
    open_ = std::make_unique<Open>(file_);
  }
}

bool SignalsStore::isReadable() const {
  // This connection knows its pages by heart and would go on writing for ever into a file that nobody else can read any more. So the
  // ends of each table and its last ten minutes are read from the disk by a stranger.
  try {
    const SQLiteDB reader(file_, SQLiteDB::Role::reader);
    for (const std::string table : {"ticks", "windows", "events"})
      for (const auto* part : {" ORDER BY rowid LIMIT 1", " ORDER BY rowid DESC LIMIT 1",
                               " WHERE ts_ms > (SELECT max(ts_ms) FROM ticks) - 600000"}) {
        auto statement = reader.prepare("SELECT * FROM " + table + part);
        while (statement.step()) {
        }
      }
  } catch (const SQLiteError& error) {
    return !error.isCorrupt();
  }
  return true;
}

void SignalsStore::setAside(std::int64_t tsMs) {
  open_.reset();
  const auto aside = freeNameAside(file_, tsMs);
  // The main file last: should a move fail in between, the next try finds it still in its place.
  for (const auto* companion : {"-wal", "-shm", "-journal", ""})
    if (fs::exists(fs::symlink_status(file_.string() + companion))) fs::rename(file_.string() + companion, aside.string() + companion);
  if (log_) log_(fmt::format("{} is damaged — set aside as {}, beginning it anew", file_.string(), aside.filename().string()));
}

void SignalsStore::insert(std::int64_t tsMs, const SignalsRow& row) {
  open_->db.transaction([&] {
    open_->tick->bind(tickValues(tsMs, row)).step();
    if (row.desktop.windows)
      for (const auto& window : *row.desktop.windows) open_->window->bind(windowValues(tsMs, window)).step();
  });
}

std::int64_t SignalsStore::write(std::int64_t tsMs, const SignalsRow& row) {
  open(tsMs);
  if (--untilLook_ <= 0) {
    untilLook_ = samplesPerLook;
    if (!isReadable()) {
      setAside(tsMs);
      open(tsMs);
    }
  }
  constexpr std::int64_t mostShiftMs = 20;
  for (auto at = tsMs;; ++at) {
    try {
      insert(at, row);
      return at;
    } catch (const SQLiteError& error) {
      if (error.code() == constraintViolated && at < tsMs + mostShiftMs) continue;
      if (error.isCorrupt()) {
        setAside(tsMs);
        open(tsMs);
        insert(tsMs, row);
        return tsMs;
      }
      open_.reset();  // whatever it was, a fresh connection is the best start of the next try
      throw;
    }
  }
}

void SignalsStore::checkpoint() {
  if (open_) open_->db.run("PRAGMA wal_checkpoint(PASSIVE)");
}

}  // namespace halvo
