#include "CaptureShared/Recording/Supervision/RespawnGate.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "CaptureShared/Recording/Supervision/CapturerExit.h"

namespace halvo {

namespace {

/// Whether nothing but the world outside can cure it: then the length of the run says nothing.
bool isIncurable(std::int32_t code) { return CapturerExit::isExplained(code) && code != CapturerExit::videoSinkFailed; }

std::optional<CaptureFault::Kind> faultOf(std::int32_t code) {
  if (CapturerExit::isVideoKeyUnavailable(code)) return CaptureFault::Kind::recordingKeyUnavailable;
  if (code == CapturerExit::dataRootFull) return CaptureFault::Kind::dataRootFull;
  if (code == CapturerExit::videoSinkFailed) return CaptureFault::Kind::videoSinkFailed;
  return std::nullopt;
}

}  // namespace

RespawnGate::Decision RespawnGate::noteChildExit(std::int32_t code, std::optional<double> ranFor) {
  noDisplaysConfirmed_ = code == CapturerExit::noDisplaysAvailable;
  auto decision = afterRun(code, ranFor);
  isGated_ = decision.gated;
  return decision;
}

RespawnGate::Decision RespawnGate::afterRun(std::int32_t code, std::optional<double> ranFor) {
  if (isIncurable(code)) {
    consecutiveRapidFailures_ = 0;
    return {.delay = screenLockSignalled_ ? config_.lockedDelay : config_.gatedDelay, .gated = true, .fault = faultOf(code)};
  }
  if (ranFor) consecutiveRapidFailures_ = *ranFor >= config_.healthyUptime ? 0 : consecutiveRapidFailures_ + 1;
  const int beyond = consecutiveRapidFailures_ - config_.rapidFailureThreshold;
  if (beyond < 0) return {.delay = config_.normalDelay, .fault = faultOf(code)};
  return {.delay = std::min(std::ldexp(config_.normalDelay, beyond), config_.escalatedCeilingDelay),
          .gated = true,
          .fault = faultOf(code).value_or(CaptureFault::Kind::crashLooping)};
}

bool RespawnGate::noteChildHealthy() {
  isGated_ = false;
  return std::exchange(consecutiveRapidFailures_, 0) > 0;
}

RespawnGate::Decision RespawnGate::noteLaunchFailure() {
  noDisplaysConfirmed_ = isGated_ = false;
  return {.delay = config_.normalDelay};
}

}  // namespace halvo
