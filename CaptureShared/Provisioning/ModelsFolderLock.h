#pragma once

#include <filesystem>

#include "CaptureShared/Foundation/FileHandle.h"

namespace halvo {

/// Held by the one process that changes the models folder. The folder itself is locked, so a process that is killed leaves nothing behind.
class ModelsFolderLock {
 public:
  /// Throws `std::system_error` when the folder can't be opened.
  explicit ModelsFolderLock(const std::filesystem::path& directory);
  /// False while somebody else holds it.
  explicit operator bool() const { return isHeld_; }

 private:
  FileHandle folder_;
  bool isHeld_ = false;
};

}  // namespace halvo
