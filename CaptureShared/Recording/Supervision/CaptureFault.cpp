#include "CaptureShared/Recording/Supervision/CaptureFault.h"

namespace halvo {

std::string_view CaptureFault::headline(Kind kind) {
  switch (kind) {
    case Kind::dataRootFull: return "Capture stopped — disk full";
    case Kind::videoSinkFailed: return "Capture stopped — recording failed";
    case Kind::crashLooping: return "Capture keeps restarting";
    case Kind::recordingKeyUnavailable: return "Capture stopped — can't secure new recordings";
    case Kind::recordingKeyRotated: return "Capture is running — older recordings unreadable";
    case Kind::denylistFilterUnreliable: return "Capture paused — privacy check failing";
    case Kind::other: return "Capture stopped — reason unclear";
  }
  return {};
}

}  // namespace halvo
