#include "CaptureShared/Signals/SQLiteDB.h"

#include <chrono>
#include <cstdio>

#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>

#include "CaptureShared/Foundation/Match.h"

namespace halvo {

namespace {

constexpr int busyTimeoutMs = 5000;

[[noreturn]] void fail(sqlite3* db, int code) {
  const char* text = db ? sqlite3_errmsg(db) : sqlite3_errstr(code);
  throw SQLiteError(code & 0xFF, text && *text ? text : "unknown sqlite error");
}

}  // namespace

bool SQLiteError::isCorrupt() const { return code_ == SQLITE_CORRUPT || code_ == SQLITE_NOTADB; }
bool SQLiteError::isFull() const { return code_ == SQLITE_FULL || code_ == SQLITE_IOERR; }

bool SQLiteError::isBusy() const { return code_ == SQLITE_BUSY || code_ == SQLITE_LOCKED; }

SQLiteDB::SQLiteDB(const std::filesystem::path& file, Role role) : db_(nullptr, sqlite3_close_v2) {
  const int flags = role == Role::reader ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
  // Only ever a new file: closing one that this process has open elsewhere would drop that connection's locks.
  if (role != Role::reader)
    if (const int made = ::open(file.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600); made >= 0) ::close(made);
  sqlite3* db = nullptr;
  const int code = sqlite3_open_v2(file.c_str(), &db, flags | SQLITE_OPEN_NOMUTEX, nullptr);
  db_.reset(db);
  if (code != SQLITE_OK) fail(db, code);
  sqlite3_busy_timeout(db, busyTimeoutMs);
  if (role != Role::owner) {
    // The log is the owner's to fold back: two that checkpoint wait for each other.
    sqlite3_wal_autocheckpoint(db, 0);
    sqlite3_db_config(db, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
  }
  if (role != Role::reader) {
    useWriteAheadLog();
    run("PRAGMA synchronous=NORMAL;");
  }
}

/// The first to come switches the file over, and whoever comes meanwhile is turned away at once: SQLite doesn't wait here by itself.
void SQLiteDB::useWriteAheadLog() {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(busyTimeoutMs);
  const auto isInUse = [this] {
    auto mode = prepare("PRAGMA journal_mode;");
    return mode.step() && mode.optionalText(0) == "wal";
  };
  while (true) {
    try {
      if (!isInUse()) run("PRAGMA journal_mode=WAL;");
      return;
    } catch (const SQLiteError& error) {
      if (!error.isBusy() || std::chrono::steady_clock::now() > deadline) throw;
    }
    sqlite3_sleep(5);
  }
}

SQLiteDB::Statement::Statement(sqlite3* db, std::string_view sql) : db_(db), statement_(nullptr, sqlite3_finalize) {
  sqlite3_stmt* statement = nullptr;
  const int code = sqlite3_prepare_v2(db, sql.data(), static_cast<int>(sql.size()), &statement, nullptr);
  if (code != SQLITE_OK) fail(db, code);
  statement_.reset(statement);
}

SQLiteDB::Statement& SQLiteDB::Statement::bind(const std::vector<SQLiteValue>& values) {
  sqlite3_reset(statement_.get());
  int index = 0;
  for (const auto& value : values) {
    ++index;
    const int code = match(
        value, [&](std::nullptr_t) { return sqlite3_bind_null(statement_.get(), index); },
        [&](std::int64_t number) { return sqlite3_bind_int64(statement_.get(), index, number); },
        [&](double number) { return sqlite3_bind_double(statement_.get(), index, number); },
        [&](const std::string& text) {
          return sqlite3_bind_text(statement_.get(), index, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
        });
    if (code != SQLITE_OK) fail(db_, code);
  }
  return *this;
}

bool SQLiteDB::Statement::step() {
  const int code = sqlite3_step(statement_.get());
  if (code == SQLITE_ROW) return true;
  if (code == SQLITE_DONE) {
    sqlite3_reset(statement_.get());
    return false;
  }
  sqlite3_reset(statement_.get());
  fail(db_, code);
}

bool SQLiteDB::Statement::isNull(int column) const { return sqlite3_column_type(statement_.get(), column) == SQLITE_NULL; }
std::int64_t SQLiteDB::Statement::integer(int column) const { return sqlite3_column_int64(statement_.get(), column); }
double SQLiteDB::Statement::real(int column) const { return sqlite3_column_double(statement_.get(), column); }
std::optional<std::int64_t> SQLiteDB::Statement::optionalInteger(int column) const {
  return isNull(column) ? std::nullopt : std::optional(integer(column));
}
std::optional<double> SQLiteDB::Statement::optionalReal(int column) const { return isNull(column) ? std::nullopt : std::optional(real(column)); }
std::optional<std::string> SQLiteDB::Statement::optionalText(int column) const {
  if (isNull(column)) return std::nullopt;
  const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement_.get(), column));
  return std::string(text, static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column)));
}

void SQLiteDB::exec(std::string_view sql) {
  try {
    run(sql);
  } catch (const SQLiteError& error) {
    std::fprintf(stderr, "SQLiteDB.exec failed: %s\nSQL: %.*s\n", error.what(), static_cast<int>(sql.size()), sql.data());
  }
}

void SQLiteDB::run(std::string_view sql) {
  const int code = sqlite3_exec(db_.get(), std::string(sql).c_str(), nullptr, nullptr, nullptr);
  if (code != SQLITE_OK) fail(db_.get(), code);
}

void SQLiteDB::insert(std::string_view sql, const std::vector<SQLiteValue>& params) {
  auto statement = prepare(sql);
  statement.bind(params);
  while (statement.step()) {
  }
}

std::vector<std::string> SQLiteDB::columnNames(std::string_view table) const {
  std::vector<std::string> names;
  auto statement = prepare("PRAGMA table_info(" + std::string(table) + ")");
  while (statement.step()) names.push_back(statement.optionalText(1).value_or(""));
  return names;
}

}  // namespace halvo
