#pragma once

#include <filesystem>
#include <optional>

#include "CaptureShared/Foundation/FileHandle.h"

namespace halvo {

/// The driver's hold on a data root: two drivers would say everything twice. The lock ends with the process, however it ends.
class SingleInstance {
 public:
  /// Takes the lock on `io-layer/coach-driver.pid` and writes this process's id into it; absent when another holds it. Throws
  /// `std::system_error`.
  static std::optional<SingleInstance> acquire(const std::filesystem::path& pidFile);
  /// Writes the id again: that the driver is alive shows in the file's time. A failed write is one sign of life less.
  void renew() const;

 private:
  explicit SingleInstance(FileHandle file) : file_(std::move(file)) {}
  FileHandle file_;
};

}  // namespace halvo
