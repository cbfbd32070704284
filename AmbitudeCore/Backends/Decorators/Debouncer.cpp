#include "AmbitudeCore/Backends/Decorators/Debouncer.h"

namespace halvo {

Debouncer::Debouncer(double delaySec, std::function<void()> action)
    : delay_(std::chrono::duration_cast<std::chrono::steady_clock::duration>(std::chrono::duration<double>(delaySec))),
      action_(std::move(action)),
      queue_([this](const std::stop_token& stop) { run(stop); }) {}

void Debouncer::trigger() {
  {
    const std::lock_guard hold(lock_);
    workItem_ = std::chrono::steady_clock::now() + delay_;
  }
  changed_.notify_one();
}

void Debouncer::run(const std::stop_token& stop) {
  std::unique_lock hold(lock_);
  while (changed_.wait(hold, stop, [&] { return workItem_.has_value(); })) {
    const auto due = *workItem_;
    if (changed_.wait_until(hold, stop, due, [&] { return workItem_ != due; })) continue;
    if (stop.stop_requested()) return;
    workItem_.reset();
    hold.unlock();
    action_();
    hold.lock();
  }
}

}  // namespace halvo
