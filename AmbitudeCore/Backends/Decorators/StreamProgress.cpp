#include "AmbitudeCore/Backends/Decorators/StreamProgress.h"

namespace halvo {

void StreamProgress::beginAttempt() {
  const std::lock_guard hold(lock_);
  ++attempt_;
  resetAnnounced_ = !delivered_;
}

ModelStreamDelta StreamProgress::passedOn(ModelStreamDelta delta) {
  const std::lock_guard hold(lock_);
  if (attempt_ >= 2 && !resetAnnounced_) {
    delta.resetsPrevious = true;
    resetAnnounced_ = true;
  }
  delivered_ = true;
  return delta;
}

}  // namespace halvo
