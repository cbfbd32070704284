#pragma once

#include <filesystem>

#include "CaptureShared/Foundation/Environment.h"
#include "CaptureShared/Foundation/FileHandle.h"

namespace halvo {

/// Where clips lie while somebody watches them: a 0700 folder of this object's own under "halvo-review-clips" in the private temporary
/// folder, removed with it. It is held under a lock, so that the next one made can tell, and remove, what a killed process left.
class ClipFolder {
 public:
  /// Throws `std::system_error`, and `std::runtime_error` without a private temporary folder.
  explicit ClipFolder(const Environment& environment);
  ClipFolder(const ClipFolder&) = delete;
  ClipFolder& operator=(const ClipFolder&) = delete;
  ~ClipFolder();

  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
  FileHandle lock_;
};

}  // namespace halvo
