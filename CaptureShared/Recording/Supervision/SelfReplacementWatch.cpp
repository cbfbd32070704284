#include "CaptureShared/Recording/Supervision/SelfReplacementWatch.h"

namespace halvo {

SelfReplacementWatch::Decision SelfReplacementWatch::check(const std::optional<ExecutableStamp>& current, double elapsedSinceLaunch) {
  if (!launchStamp) return NotWatching{};
  if (firedExit) return KeepRunning{};
  if (!current) {
    candidate.reset();
    return Unreadable{};
  }
  if (*current == *launchStamp) {
    candidate.reset();
    return KeepRunning{};
  }
  if (elapsedSinceLaunch < minimumUptime) return KeepRunning{};
  if (candidate == current) {
    firedExit = true;
    return ExitForNewBinary{*launchStamp, *current};
  }
  candidate = current;
  return Settling{*current};
}

}  // namespace halvo
