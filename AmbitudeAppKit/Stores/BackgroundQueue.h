#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <stop_token>
#include <thread>

namespace halvo {

/// Work of one store off the main thread, one job after another. A job that throws is told on standard error; the queue goes on.
class BackgroundQueue {
 public:
  using Job = std::function<void(const std::stop_token&)>;

  BackgroundQueue();
  /// Stops the job that runs and waits for it; jobs that have not begun are dropped.
  ~BackgroundQueue();
  BackgroundQueue(const BackgroundQueue&) = delete;
  BackgroundQueue& operator=(const BackgroundQueue&) = delete;

  void post(Job job);

 private:
  void work(const std::stop_token& stop);

  std::mutex mutex_;
  std::condition_variable_any wake_;
  std::deque<Job> jobs_;
  std::jthread worker_;  // last: it uses all of the above
};

}  // namespace halvo
