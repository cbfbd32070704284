#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace halvo {

/// The database's own words. `isCorrupt`: the file is not a database or is damaged.
class SQLiteError : public std::runtime_error {
 public:
  SQLiteError(int code, const std::string& text) : std::runtime_error(text), code_(code) {}
  int code() const { return code_; }  ///< SQLite's primary result code
  bool isCorrupt() const;
  bool isFull() const;
  bool isBusy() const;  ///< another holds the lock, for longer than was waited

 private:
  int code_;
};

using SQLiteValue = std::variant<std::nullptr_t, std::int64_t, double, std::string>;
/// An absent optional binds as null.
template <class T>
SQLiteValue sqliteValue(const std::optional<T>& value) {
  if (!value) return nullptr;
  if constexpr (std::is_integral_v<T>)
    return static_cast<std::int64_t>(*value);
  else
    return *value;
}

/// One connection to a database file. Waits 5 s for another's lock. One thread at a time.
class SQLiteDB {
 public:
  enum class Role {
    owner,   ///< creates the file (0600), and alone checkpoints its write-ahead log
    writer,  ///< writes a copy now and then; creates the file, never checkpoints, also not on close
    reader   ///< opens an existing file read-only
  };

  /// Opens, and for the writing roles sets write-ahead logging. Throws `SQLiteError`.
  explicit SQLiteDB(const std::filesystem::path& file, Role role = Role::writer);

  /// One prepared statement; reset and bound anew at each use.
  class Statement {
   public:
    /// Binds the values from the first parameter on; forgets the last run. Throws `SQLiteError`.
    Statement& bind(const std::vector<SQLiteValue>& values);
    /// Moves to the next row; false at the end. Throws `SQLiteError`.
    bool step();

    bool isNull(int column) const;
    std::int64_t integer(int column) const;
    double real(int column) const;
    std::optional<std::int64_t> optionalInteger(int column) const;
    std::optional<double> optionalReal(int column) const;
    std::optional<std::string> optionalText(int column) const;

   private:
    friend class SQLiteDB;
    Statement(sqlite3* db, std::string_view sql);
    sqlite3* db_;
    std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)> statement_;
  };
  Statement prepare(std::string_view sql) const { return Statement(db_.get(), sql); }

  /// Runs text without bindings. A failure is printed to standard error and otherwise silent: what depends on it fails next, with its own error.
  void exec(std::string_view sql);
  /// Runs text without bindings; throws `SQLiteError`.
  void run(std::string_view sql);
  /// Prepares, binds and steps once. Throws `SQLiteError`.
  void insert(std::string_view sql, const std::vector<SQLiteValue>& params);
  /// Empty for a table that does not exist.
  std::vector<std::string> columnNames(std::string_view table) const;
  /// Runs `body` in one transaction, rolled back when it throws.
  template <class F>
  void transaction(F&& body) {
    run("BEGIN IMMEDIATE");
    try {
      body();
      run("COMMIT");
    } catch (...) {
      try {
        run("ROLLBACK");
      } catch (const SQLiteError&) {
        // A full disk has ended the transaction already; what ended it is the news.
      }
      throw;
    }
  }

 private:
  void useWriteAheadLog();
  std::unique_ptr<sqlite3, int (*)(sqlite3*)> db_;
};

}  // namespace halvo
