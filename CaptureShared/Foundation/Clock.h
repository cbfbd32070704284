#pragma once

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <stop_token>

namespace halvo {

/// What a loop knows of time. A loop reads `nowMs` once a turn and waits only through `wait`; a test's clock moves its own time.
struct Clock {
  std::function<std::int64_t()> nowMs;                           ///< milliseconds since the epoch
  std::function<void(double sec, const std::stop_token&)> wait;  ///< returns early when stopped; never throws

  static Clock system();
};

/// Milliseconds on a clock that nobody sets and that stands still while the machine sleeps: for how long something has run.
std::int64_t steadyNowMs();

/// The caller's stop token ended the call. Never retried, never a backend's error.
class Cancelled : public std::runtime_error {
 public:
  Cancelled() : std::runtime_error("cancelled") {}
};

/// Throws `Cancelled` when a stop was requested.
inline void throwIfStopped(const std::stop_token& stop) {
  if (stop.stop_requested()) throw Cancelled();
}

}  // namespace halvo
