#pragma once

#include <cstdint>
#include <mutex>
#include <optional>

#include "AmbitudeCore/Backends/ChatTypes.h"

namespace halvo {

/// Keeps a backend that could not be reached from being asked for a while. Safe from any thread.
class Breaker {
 public:
  explicit Breaker(double cooldownSec) : cooldownMs_(static_cast<std::int64_t>(cooldownSec * 1000)) {}

  void open(std::int64_t nowMs, FallbackCause cause);
  /// Why it is open; absent when it is closed, which it is from `cooldownSec` after it was opened. A clock that was set back never makes
  /// that longer than one cooldown more.
  std::optional<FallbackCause> check(std::int64_t nowMs);

 private:
  std::mutex lock_;
  std::int64_t cooldownMs_;
  std::optional<std::int64_t> openedAtMs_;
  FallbackCause cause_ = FallbackCause::unreachable;
};

}  // namespace halvo
