#pragma once

#include <cstdint>

#include "CaptureShared/Foundation/LockedValue.h"

namespace halvo {

/// Numbers the refreshes of something that answers late: an answer whose number is no longer the current one is dropped. Safe from any
/// thread.
class RefreshGeneration {
 public:
  /// The number of the refresh that begins now.
  std::uint64_t begin() {
    return current_.with([](std::uint64_t& current) { return ++current; });
  }
  std::uint64_t current() const { return current_.get(); }
  bool isCurrent(std::uint64_t generation) const { return current() == generation; }

 private:
  LockedValue<std::uint64_t> current_;
};

}  // namespace halvo
