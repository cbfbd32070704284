#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <thread>

#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/ExecutablePath.h"
#include "CaptureShared/Foundation/Log.h"

namespace halvo {

/// A `SelfReplacementWatch` on this program's own file, on a thread of its own. Make it at the program's start.
class ReplacementTimer {
 public:
  static constexpr double periodSec = 30;

  struct Options {
    std::function<void()> onReplaced;  ///< called once, from that thread
    LogSink log = {};
    std::filesystem::path executable = ExecutablePath::resolveSelf();
    std::function<std::int64_t()> steadyMs = steadyNowMs;
    std::function<void(double sec, const std::stop_token&)> wait = Clock::system().wait;
  };
  explicit ReplacementTimer(Options options);

 private:
  std::jthread thread_;
};

}  // namespace halvo
