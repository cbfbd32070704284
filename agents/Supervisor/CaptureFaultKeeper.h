#pragma once

#include <cstdint>
#include <filesystem>

#include "CaptureShared/Foundation/Log.h"
#include "agents/Supervisor/SupervisedChild.h"

namespace halvo {

/// What the recorder's runs do to the fault that the person sees. A fault that can't be written or cleared is logged, no more.
class CaptureFaultKeeper {
 public:
  CaptureFaultKeeper(std::filesystem::path file, LogSink log) : file_(std::move(file)), log_(std::move(log)) {}

  void noteStart(std::int64_t nowMs) { startedMs_ = nowMs; }
  /// Writes what the run ended with. A crash says less than what the recorder itself wrote during that run, so that stays.
  void noteExit(const SupervisedChild::Exit& exit, std::int64_t nowMs);
  /// Clears a fault from before this run. That older recordings are unreadable is no matter of this run, and stays until it is stale.
  void noteHealthy(std::int64_t nowMs);

 private:
  std::filesystem::path file_;
  LogSink log_;
  std::int64_t startedMs_ = 0;
  int failuresInARow_ = 0;
};

}  // namespace halvo
