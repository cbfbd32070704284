#include "CaptureShared/Recording/Supervision/CapturerExit.h"

#include "CaptureShared/Foundation/FFmpegResolver.h"
#include "CaptureShared/Recording/VideoArchiveKeyStore.h"
#include "Platform/Screen/ScreenCapture.h"

namespace halvo::CapturerExit {

namespace {

std::int32_t keyCode(VideoArchiveKeyStore::KeyError::Kind kind) {
  using Kind = VideoArchiveKeyStore::KeyError::Kind;
  switch (kind) {
    case Kind::missing: return videoKeyMissing;
    case Kind::locked: return videoKeyLocked;
    case Kind::unreadable:
    case Kind::aclMismatch:
    case Kind::itemAlreadyExists:
    case Kind::noWriterInACL: return videoKeyUnreadable;
  }
  return videoKeyUnreadable;
}

bool isOfKind(const std::exception& error, ScreenCaptureError::Kind kind) {
  const auto* screen = dynamic_cast<const ScreenCaptureError*>(&error);
  return screen && screen->kind() == kind;
}

}  // namespace

bool isExplained(std::int32_t code) {
  switch (code) {
    case noDisplaysAvailable:
    case videoKeyUnreadable:
    case ffmpegMissing:
    case videoKeyMissing:
    case videoSinkFailed:
    case dataRootFull:
    case videoKeyLocked:
    case screenRecordingDenied: return true;
    default: return false;
  }
}

bool isVideoKeyUnavailable(std::int32_t code) { return code == videoKeyUnreadable || code == videoKeyMissing || code == videoKeyLocked; }

std::optional<std::int32_t> startupCode(const std::exception& error) {
  if (dynamic_cast<const FFmpegResolver::NotFound*>(&error)) return ffmpegMissing;
  if (const auto* key = dynamic_cast<const VideoArchiveKeyStore::KeyError*>(&error)) return keyCode(key->kind());
  if (isScreenRecordingDenied(error)) return screenRecordingDenied;
  if (isOfKind(error, ScreenCaptureError::Kind::noDisplay)) return noDisplaysAvailable;
  return std::nullopt;
}

bool isScreenRecordingDenied(std::string_view domain, std::int64_t code) {
  return code == -3801 && domain == "com.apple.ScreenCaptureKit.SCStreamErrorDomain";
}

bool isScreenRecordingDenied(const std::exception& error) { return isOfKind(error, ScreenCaptureError::Kind::refused); }

}  // namespace halvo::CapturerExit
