#include "AmbitudeCore/Backends/Decorators/Breaker.h"

#include <algorithm>

namespace halvo {

void Breaker::open(std::int64_t nowMs, FallbackCause cause) {
  const std::lock_guard hold(lock_);
  openedAtMs_ = nowMs;
  cause_ = cause;
}

std::optional<FallbackCause> Breaker::check(std::int64_t nowMs) {
  const std::lock_guard hold(lock_);
  if (!openedAtMs_) return std::nullopt;
  openedAtMs_ = std::min(*openedAtMs_, nowMs);
  if (nowMs - *openedAtMs_ < cooldownMs_) return cause_;
  openedAtMs_.reset();
  return std::nullopt;
}

}  // namespace halvo
