#pragma once

#include <optional>
#include <variant>

#include "CaptureShared/Recording/Supervision/ExecutableStamp.h"

namespace halvo {

/// Whether a running program's file was replaced by an update, so that it should end and let the new one be started.
struct SelfReplacementWatch {
  /// Seconds after the launch before a change counts: a bad update must not make a fast loop of restarts.
  static constexpr double minimumUptime = 120.0;

  struct Settling {  ///< seen once: it may still be copied
    ExecutableStamp stamp;
    bool operator==(const Settling&) const = default;
  };
  struct ExitForNewBinary {
    ExecutableStamp from, to;
    bool operator==(const ExitForNewBinary&) const = default;
  };
  struct KeepRunning {
    bool operator==(const KeepRunning&) const = default;
  };
  struct NotWatching {  ///< there was no stamp at the launch
    bool operator==(const NotWatching&) const = default;
  };
  struct Unreadable {
    bool operator==(const Unreadable&) const = default;
  };
  using Decision = std::variant<Settling, ExitForNewBinary, KeepRunning, NotWatching, Unreadable>;

  std::optional<ExecutableStamp> launchStamp = {};
  std::optional<ExecutableStamp> candidate = {};
  bool firedExit = false;

  /// `current` absent: the file can't be looked at. A change that has held still from one check to the next fires, once.
  Decision check(const std::optional<ExecutableStamp>& current, double elapsedSinceLaunch);
};

}  // namespace halvo
