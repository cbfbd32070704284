#pragma once

#include <utility>

#include "CaptureShared/Foundation/LockedValue.h"

namespace halvo {

/// That the end has begun, said once. Safe from any thread.
class ShutdownFlag {
 public:
  /// True for the first caller only.
  bool begin() {
    return begun_.with([](bool& begun) { return !std::exchange(begun, true); });
  }
  bool hasBegun() const { return begun_.get(); }

 private:
  LockedValue<bool> begun_;
};

}  // namespace halvo
