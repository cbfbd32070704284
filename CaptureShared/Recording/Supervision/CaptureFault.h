#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "CaptureShared/Foundation/RawValue.h"

namespace halvo {

/// Why nothing, or nothing readable, is being recorded.
struct CaptureFault {
  enum class Kind {
    dataRootFull,
    videoSinkFailed,
    crashLooping,
    recordingKeyUnavailable,
    recordingKeyRotated,
    denylistFilterUnreliable,
    other
  };

  Kind kind = Kind::other;
  std::int64_t sinceMs = 0;      ///< when it began
  std::int64_t updatedAtMs = 0;  ///< when it was last seen
  int consecutiveFailures = 0;
  std::string detail;

  bool operator==(const CaptureFault&) const = default;

  static std::string headline(Kind kind);
};

template <>
struct RawValues<CaptureFault::Kind> {
  static constexpr std::array table{std::pair{CaptureFault::Kind::dataRootFull, "dataRootFull"},
                                    std::pair{CaptureFault::Kind::videoSinkFailed, "videoSinkFailed"},
                                    std::pair{CaptureFault::Kind::crashLooping, "crashLooping"},
                                    std::pair{CaptureFault::Kind::recordingKeyUnavailable, "recordingKeyUnavailable"},
                                    std::pair{CaptureFault::Kind::recordingKeyRotated, "recordingKeyRotated"},
                                    std::pair{CaptureFault::Kind::denylistFilterUnreliable, "denylistFilterUnreliable"},
                                    std::pair{CaptureFault::Kind::other, "other"}};
};

}  // namespace halvo
