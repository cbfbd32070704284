#include "agents/Capturer/CaptureEnd.h"

#include <cerrno>

#include "CaptureShared/Recording/Supervision/CapturerExit.h"

namespace halvo {

CaptureEnd CaptureEnd::ofWrite(const std::system_error& error) {
  const int code = error.code().value();
  const bool isFull = code == ENOSPC || code == EDQUOT;
  return {isFull ? CapturerExit::dataRootFull : CapturerExit::videoSinkFailed, error.what()};
}

}  // namespace halvo
