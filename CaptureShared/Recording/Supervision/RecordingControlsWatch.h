#pragma once

#include <filesystem>
#include <optional>
#include <utility>

#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Recording/Supervision/RecordingControls.h"

namespace halvo {

/// The controls for a loop that asks at every turn: one `stat` while the file is the same. One thread.
class RecordingControlsWatch {
 public:
  RecordingControls look(const std::filesystem::path& dataRoot);

 private:
  std::filesystem::path root_;
  std::optional<std::pair<FileIdentity, RecordingControls>> known_;
};

}  // namespace halvo
