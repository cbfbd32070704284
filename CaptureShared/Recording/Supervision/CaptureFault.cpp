#include "CaptureShared/Recording/Supervision/CaptureFault.h"

#include "CaptureShared/Foundation/Translation.h"

namespace halvo {

std::string CaptureFault::headline(Kind kind) {
  switch (kind) {
    case Kind::dataRootFull: return tr("Capture stopped — disk full");
    case Kind::videoSinkFailed: return tr("Capture stopped — recording failed");
    case Kind::crashLooping: return tr("Capture keeps restarting");
    case Kind::recordingKeyUnavailable: return tr("Capture stopped — can't secure new recordings");
    case Kind::recordingKeyRotated: return tr("Capture is running — older recordings unreadable");
    case Kind::denylistFilterUnreliable: return tr("Capture paused — privacy check failing");
    case Kind::other: return tr("Capture stopped — reason unclear");
  }
  return {};
}

}  // namespace halvo
