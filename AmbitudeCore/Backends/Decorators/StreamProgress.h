#pragma once

#include <mutex>

#include "AmbitudeCore/Backends/ChatTypes.h"

namespace halvo {

/// What a streamed call has shown over all its attempts, so that a later attempt replaces an earlier one's text and never continues it.
class StreamProgress {
 public:
  /// A backend is about to be run for the call.
  void beginAttempt();
  /// The delta as it is to be passed on: the first one of an attempt behind one that delivered has `resetsPrevious` set.
  ModelStreamDelta passedOn(ModelStreamDelta delta);

 private:
  std::mutex lock_;
  bool delivered_ = false;       ///< by any attempt
  int attempt_ = 0;              ///< counts from 1
  bool resetAnnounced_ = false;  ///< by this attempt, or by nobody where none is due
};

}  // namespace halvo
