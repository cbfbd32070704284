#pragma once

#include <cstdint>
#include <optional>

#include "CaptureShared/Recording/Supervision/CaptureFault.h"

namespace halvo {

/// How long to wait before a child is started again, and what its end means. All times are seconds. One thread.
class RespawnGate {
 public:
  struct Config {
    double normalDelay = 5;
    double gatedDelay = 60;    ///< after an end that a restart does not cure
    double lockedDelay = 30;   ///< in its place while the screen is locked: a recorder started there only fails again
    double healthyUptime = 60;  ///< far above the recorder's start-up, which takes one or two
    int rapidFailureThreshold = 5;
    double escalatedCeilingDelay = 300;
  };
  struct Decision {
    double delay = 0;
    bool gated = false;
    std::optional<CaptureFault::Kind> fault = {};
    bool operator==(const Decision&) const = default;
  };

  explicit RespawnGate(const Config& config) : config_(config) {}

  /// `code` as in `CapturerExit`; `ranFor` absent: nobody knows, which changes no count.
  Decision noteChildExit(std::int32_t code, std::optional<double> ranFor);
  /// Whether there were rapid failures to forget.
  bool noteChildHealthy();
  /// The program could not even be started.
  Decision noteLaunchFailure();
  void noteScreenLocked() { screenLockSignalled_ = true; }
  void noteScreenUnlocked() { screenLockSignalled_ = false; }

  const Config& config() const { return config_; }
  int rapidFailureCount() const { return consecutiveRapidFailures_; }
  /// Whether the last decision was.
  bool isGated() const { return isGated_; }
  bool hasScreenLockSignal() const { return screenLockSignalled_; }
  bool hasNoDisplaysConfirmed() const { return noDisplaysConfirmed_; }

 private:
  Decision afterRun(std::int32_t code, std::optional<double> ranFor);

  Config config_;
  int consecutiveRapidFailures_ = 0;
  bool screenLockSignalled_ = false, noDisplaysConfirmed_ = false, isGated_ = false;
};

}  // namespace halvo
