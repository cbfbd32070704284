#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "CaptureShared/Foundation/Log.h"
#include "CaptureShared/Signals/SQLiteDB.h"
#include "Platform/Desktop/DesktopFacts.h"
#include "Platform/Desktop/NowPlaying.h"

namespace halvo {

/// All that one sample found.
struct SignalsRow {
  DesktopSample desktop = {};
  NowPlaying::Result nowPlaying = {};
  std::optional<std::string> declaredTask = {};
};

/// `signals.sqlite` as its one owner writes it: a row of `ticks` and the rows of `windows` a sample, in one transaction. A damaged database
/// is set aside under another name, never deleted, and a fresh one begun. One thread at a time.
class SignalsStore {
 public:
  SignalsStore(std::filesystem::path file, LogSink log);
  ~SignalsStore();

  const std::filesystem::path& file() const { return file_; }

  /// Writes one sample and answers the `ts_ms` it got: `tsMs`, or a few milliseconds later when a row stands there already, as happens
  /// after the clock was set back. Throws `SQLiteError` and `std::system_error`; nothing of the sample is then in the file, and the next
  /// call begins anew.
  std::int64_t write(std::int64_t tsMs, const SignalsRow& row);
  /// Samples from one look at the file through a reader's eyes to the next: a quarter of a minute.
  static constexpr int samplesPerLook = 10;
  /// Folds the write-ahead log back as far as readers allow, without waiting for them. Throws `SQLiteError`.
  void checkpoint();

 private:
  struct Open;
  void open(std::int64_t tsMs);
  bool isReadable() const;
  void insert(std::int64_t tsMs, const SignalsRow& row);
  void setAside(std::int64_t tsMs);

  std::filesystem::path file_;
  LogSink log_;
  std::unique_ptr<Open> open_;
  int untilLook_ = 0;
};

}  // namespace halvo
