#pragma once

#include <filesystem>
#include <optional>

#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/Environment.h"
#include "CaptureShared/Foundation/Log.h"

namespace halvo {

/// What a backend stands in, the same for every kind.
struct BackendSurroundings {
  Clock clock = Clock::system();
  LogSink log = {};
  std::optional<std::filesystem::path> dumpDirectory = {};  ///< requests are dumped under it when the environment asks for it
  Environment environment = {};                             ///< for the two debugging switches
};

}  // namespace halvo
