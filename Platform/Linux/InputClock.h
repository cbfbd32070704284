#pragma once

#include <cstdint>
#include <optional>

#include "Platform/Desktop/DesktopFacts.h"

namespace halvo {

/// When a key and when the mouse was last used, on the X server's own clock: milliseconds in 32 bits that wrap every 49.7 days. Pure.
class InputClock {
 public:
  /// Starts at `nowMs` with the last input of any kind `idleMs` ago. Which kind that was nobody can tell any more, so it counts for both.
  InputClock(std::uint32_t nowMs, std::uint32_t idleMs) : keyMs_(nowMs - idleMs), mouseMs_(nowMs - idleMs) {}

  /// A key was used at `atMs`. Events may come in any order; an older one changes nothing.
  void key(std::uint32_t atMs) { advance(keyMs_, atMs); }
  /// The mouse (or a finger on the screen) moved, scrolled or clicked at `atMs`.
  void mouse(std::uint32_t atMs) { advance(mouseMs_, atMs); }

  /// How long ago that was at `nowMs`; an event from after `nowMs` counts as now.
  IdleSeconds at(std::uint32_t nowMs) const;

 private:
  static void advance(std::uint32_t& lastMs, std::uint32_t atMs);

  std::uint32_t keyMs_, mouseMs_;
};

}  // namespace halvo
