#include "AmbitudeAppKit/Stores/BackgroundQueue.h"

#include <cstdio>
#include <exception>
#include <utility>

namespace halvo {

BackgroundQueue::BackgroundQueue(AtEnd atEnd) : atEnd_(atEnd), worker_([this](const std::stop_token& stop) { work(stop); }) {}

BackgroundQueue::~BackgroundQueue() {
  worker_.request_stop();
  worker_.join();
}

void BackgroundQueue::post(Job job) {
  {
    const std::lock_guard hold(mutex_);
    jobs_.push_back(std::move(job));
  }
  wake_.notify_one();
}

void BackgroundQueue::work(const std::stop_token& stop) {
  while (true) {
    Job job;
    {
      std::unique_lock hold(mutex_);
      if (!wake_.wait(hold, stop, [this] { return !jobs_.empty(); })) return;
      if (stop.stop_requested() && atEnd_ == AtEnd::drop) return;
      job = std::move(jobs_.front());
      jobs_.pop_front();
    }
    try {
      job(stop);
    } catch (const std::exception& error) {
      std::fprintf(stderr, "in the background: %s\n", error.what());
    }
  }
}

}  // namespace halvo
