#pragma once

#include "CaptureShared/Foundation/LockedValue.h"

namespace halvo {

/// Stops paying for unconstrained attempts that keep failing: each failure in a row skips twice as many of them. One a driver process, held
/// for its whole life; its calls are serialised by one lock.
class GateUnconstrainedBreaker {
 public:
  struct Counters {
    int consecutiveFailures = 0;
    int skipsRemaining = 0;
    int ticksSinceLastSuccess = 0;  ///< gate calls since an unconstrained one last succeeded
    bool operator==(const Counters&) const = default;
  };
  struct Failure {
    int skipTicks = 0;
    int consecutiveFailures = 0;
    int ticksSinceLastSuccess = 0;
    bool operator==(const Failure&) const = default;
  };

  /// `maxBackoffTicks` is the most attempts that are skipped in a row.
  explicit GateUnconstrainedBreaker(int maxBackoffTicks) : maxBackoffTicks_(maxBackoffTicks) {}

  int maxBackoffTicks() const { return maxBackoffTicks_; }
  Counters counters() const { return counters_.get(); }

  /// Counts the tick, spends a skip when there is one, and answers whether to attempt.
  bool allowsUnconstrained();
  void recordSuccess();
  Failure recordParseFailure();

 private:
  const int maxBackoffTicks_;
  LockedValue<Counters> counters_;
};

}  // namespace halvo
