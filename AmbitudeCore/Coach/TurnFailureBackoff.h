#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <optional>

namespace halvo {

/// Waiting longer between tries of a turn that keeps failing. One owner. The identity is the turn's cause, so one failing message does not
/// hold another back.
class TurnFailureBackoff {
 public:
  static constexpr double defaultBaseInterval = 30;  ///< seconds
  static constexpr double defaultCapInterval = 600;

  explicit TurnFailureBackoff(double baseIntervalSec = defaultBaseInterval, double capIntervalSec = defaultCapInterval)
      : baseInterval_(baseIntervalSec), capInterval_(capIntervalSec) {}

  struct Blocked {
    bool blocked = false;
    std::int64_t remainingSec = 0;
  };
  Blocked isBlocked(std::optional<std::int64_t> identity, std::int64_t asOfMs) const {
    if (!nextEligibleAtMs_ || asOfMs >= *nextEligibleAtMs_ || identity != failingIdentity_) return {};
    return {true, (*nextEligibleAtMs_ - asOfMs + 999) / 1000};
  }

  struct Failure {
    double interval = 0;  ///< seconds
    int consecutiveFailures = 0;
  };
  Failure recordFailure(std::optional<std::int64_t> identity, std::int64_t asOfMs) {
    ++consecutiveFailures_;
    const double interval = std::min(capInterval_, baseInterval_ * std::exp2(std::min(consecutiveFailures_, 31) - 1));
    nextEligibleAtMs_ = asOfMs + static_cast<std::int64_t>(interval * 1000);
    failingIdentity_ = identity;
    return {interval, consecutiveFailures_};
  }
  void recordSuccess() {
    consecutiveFailures_ = 0;
    nextEligibleAtMs_.reset();
    failingIdentity_.reset();
  }

  int consecutiveFailures() const { return consecutiveFailures_; }
  std::optional<std::int64_t> nextEligibleAtMs() const { return nextEligibleAtMs_; }

 private:
  double baseInterval_, capInterval_;
  int consecutiveFailures_ = 0;
  std::optional<std::int64_t> nextEligibleAtMs_, failingIdentity_;
};

/// The older road's note of a back-off that the coach asked for itself.
namespace BackoffDisclosure {
struct Pending {
  std::int64_t activeBackoffUntilMs = 0;
  std::int64_t setAtMs = 0;
  std::optional<double> requestedMinutes = {};
};
}  // namespace BackoffDisclosure

}  // namespace halvo
