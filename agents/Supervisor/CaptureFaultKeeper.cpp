#include "agents/Supervisor/CaptureFaultKeeper.h"

#include <system_error>

#include <fmt/format.h>

#include "CaptureShared/Recording/Supervision/CaptureFaultStore.h"

namespace halvo {

void CaptureFaultKeeper::noteExit(const SupervisedChild::Exit& exit, std::int64_t nowMs) {
  ++failuresInARow_;
  if (!exit.decision.fault) return;
  const auto written = CaptureFaultStore::read(file_);
  if (*exit.decision.fault == CaptureFault::Kind::crashLooping && written && written->kind != CaptureFault::Kind::crashLooping &&
      written->updatedAtMs >= startedMs_)
    return;
  CaptureFaultStore::recordDirectly({.kind = *exit.decision.fault,
                                     .detail = fmt::format("the recorder ended with {} after {:.0f} s", exit.code, exit.ranForSec),
                                     .consecutiveFailures = failuresInARow_,
                                     .nowMs = nowMs,
                                     .file = file_,
                                     .log = log_});
}

void CaptureFaultKeeper::noteHealthy(std::int64_t nowMs) {
  failuresInARow_ = 0;
  const auto written = CaptureFaultStore::read(file_);
  // One from the future was written by a clock that was wrong.
  const bool isOfThisRun = written && startedMs_ <= written->updatedAtMs && written->updatedAtMs <= nowMs;
  if (written && (written->kind == CaptureFault::Kind::recordingKeyRotated || isOfThisRun)) return;
  try {
    CaptureFaultStore::clear(file_);
  } catch (const std::system_error& error) {
    if (log_) log_(fmt::format("the capture fault could not be cleared: {}", error.what()));
  }
}

}  // namespace halvo
