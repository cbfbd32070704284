#pragma once

#include <filesystem>
#include <optional>

#include "CaptureShared/Foundation/FileHandle.h"

namespace halvo {

/// An agent's hold on its data root: two of them would do everything twice. The lock ends with the process, however it ends.
class SingleInstance {
 public:
  /// Takes the lock on the file, made when it is missing, and writes this process's id into it; absent when another holds it. Throws
  /// `std::system_error`.
  static std::optional<SingleInstance> acquire(const std::filesystem::path& pidFile);
  /// Writes the id again: that the agent is alive shows in the file's time. A failed write is one sign of life less.
  void renew() const;
  /// Whether the file of that name is the one that is held: not when another root, or another disk, is there by now.
  bool isOf(const std::filesystem::path& pidFile) const;

 private:
  explicit SingleInstance(FileHandle file) : file_(std::move(file)) {}
  FileHandle file_;
};

}  // namespace halvo
