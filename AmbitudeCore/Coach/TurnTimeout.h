#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <stop_token>
#include <thread>
#include <utility>

#include <fmt/format.h>

#include "CaptureShared/Foundation/Clock.h"

namespace halvo::TurnTimeout {

class Exceeded : public std::runtime_error {
 public:
  explicit Exceeded(double sec) : std::runtime_error(fmt::format("the turn took longer than {:g} s", sec)), seconds_(sec) {}
  double seconds() const { return seconds_; }

 private:
  double seconds_;
};

/// Runs `operation` with a token that stops when time is up or the caller's token stops, and answers what it answers. Throws `Exceeded`
/// when it was the time; whatever else the operation throws is thrown on.
template <class F>
auto run(double seconds, const std::stop_token& stop, F&& operation) {
  std::stop_source inner;
  const std::stop_callback forward(stop, [&] { inner.request_stop(); });
  bool expired = false;
  std::mutex mutex;
  std::condition_variable_any wakeUp;
  std::jthread timer([&](const std::stop_token& done) {
    std::unique_lock lock(mutex);
    if (wakeUp.wait_for(lock, done, std::chrono::duration<double>(seconds), [&] { return done.stop_requested(); })) return;
    if (done.stop_requested()) return;
    expired = true;
    lock.unlock();
    inner.request_stop();
  });
  auto isExpired = [&] {
    const std::lock_guard hold(mutex);
    return expired;
  };
  try {
    return std::forward<F>(operation)(inner.get_token());
  } catch (const Cancelled&) {
    if (isExpired() && !stop.stop_requested()) throw Exceeded(seconds);
    throw;
  }
}

}  // namespace halvo::TurnTimeout
