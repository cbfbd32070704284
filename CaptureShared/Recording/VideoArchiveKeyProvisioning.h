#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>

#include "CaptureShared/Foundation/Log.h"
#include "CaptureShared/Recording/VideoArchiveKeyStore.h"

/// What the application does for the recordings when it starts: see to it that there is a key.
namespace halvo::VideoArchiveKeyProvisioning {

struct Setup {
  const VideoArchiveKeyStore& store;
  std::filesystem::path executable = {};  ///< the running application's
  std::int64_t nowMs = 0;
  LogSink log = {};
  /// Tells the person that older recordings can't be read by this build.
  std::function<void(const std::string& detail, int consecutiveFailures)> recordKeyRotated = {};
};
/// Never throws a `KeyError`: without a key there is a line in the log, and no recording.
void provision(const Setup& setup);

}  // namespace halvo::VideoArchiveKeyProvisioning
