#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <stop_token>
#include <thread>

namespace halvo {

/// Runs an action once things have been quiet for a while: each trigger puts it off anew.
class Debouncer {
 public:
  /// `action` runs on a thread of the debouncer's own and must not throw.
  Debouncer(double delaySec, std::function<void()> action);
  /// Gives up a pending action; one that is under way is waited for.
  ~Debouncer() = default;
  Debouncer(const Debouncer&) = delete;
  Debouncer& operator=(const Debouncer&) = delete;

  void trigger();

 private:
  using Time = std::chrono::steady_clock::time_point;
  void run(const std::stop_token& stop);

  const std::chrono::steady_clock::duration delay_;
  const std::function<void()> action_;
  std::mutex lock_;
  std::condition_variable_any changed_;
  std::optional<Time> workItem_;  ///< when the pending action is due
  std::jthread queue_;
};

}  // namespace halvo
