#include "CaptureShared/Foundation/Clock.h"

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace halvo {

Clock Clock::system() {
  return {.nowMs =
              [] {
                const auto now = std::chrono::system_clock::now().time_since_epoch();
                return static_cast<std::int64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
              },
          .wait =
              [](double sec, const std::stop_token& stop) {
                std::mutex mutex;
                std::condition_variable_any wakeUp;
                std::unique_lock lock(mutex);
                wakeUp.wait_for(lock, stop, std::chrono::duration<double>(sec), [] { return false; });
              }};
}

std::int64_t steadyNowMs() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

}  // namespace halvo
