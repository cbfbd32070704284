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

  /// What becomes of jobs that have not begun when the queue ends.
  enum class AtEnd { drop, finish };
  explicit BackgroundQueue(AtEnd atEnd = AtEnd::drop);
  /// Stops the job that runs and waits for it, and for the others when they are to be finished.
  ~BackgroundQueue();
  BackgroundQueue(const BackgroundQueue&) = delete;
  BackgroundQueue& operator=(const BackgroundQueue&) = delete;

  void post(Job job);

 private:
  void work(const std::stop_token& stop);

  const AtEnd atEnd_;
  std::mutex mutex_;
  std::condition_variable_any wake_;
  std::deque<Job> jobs_;
  std::jthread worker_;  // last: it uses all of the above
};

}  // namespace halvo
