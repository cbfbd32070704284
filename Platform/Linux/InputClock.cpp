#include "Platform/Linux/InputClock.h"

#include <algorithm>

namespace halvo {
namespace {

/// Events are handed over out of order by moments, idleness lasts weeks: a time that seems to lie up to three days ahead is ahead, and all
/// else is behind. So an idleness of up to 46 days reads right on a clock that wraps at 49.7.
constexpr std::uint32_t aheadMs = 3u * 24 * 3600 * 1000;

std::uint32_t elapsedMs(std::uint32_t fromMs, std::uint32_t nowMs) {
  const std::uint32_t ahead = fromMs - nowMs;
  return ahead <= aheadMs ? 0 : nowMs - fromMs;
}

}  // namespace

void InputClock::advance(std::uint32_t& lastMs, std::uint32_t atMs) {
  if (elapsedMs(lastMs, atMs) > 0) lastMs = atMs;
}

IdleSeconds InputClock::at(std::uint32_t nowMs) const {
  const double key = elapsedMs(keyMs_, nowMs) / 1000.0, mouse = elapsedMs(mouseMs_, nowMs) / 1000.0;
  return {.key = key, .mouse = mouse, .any = std::min(key, mouse)};
}

}  // namespace halvo
