#include "CaptureShared/Recording/VideoEncryptionError.h"

namespace halvo {
namespace {

const char* description(VideoEncryptionError::Kind kind) {
  switch (kind) {
    case VideoEncryptionError::Kind::sealingFailed: return "AES-GCM sealing failed";
    case VideoEncryptionError::Kind::notEncrypted: return "file does not start with the encrypted-video magic header";
    case VideoEncryptionError::Kind::corruptChunk: return "chunk framing is malformed (not a valid sealed box)";
    case VideoEncryptionError::Kind::authenticationFailed:
      return "chunk failed AES-GCM authentication — wrong key, or the file was tampered with";
  }
  return "";
}

}  // namespace

VideoEncryptionError::VideoEncryptionError(Kind kind) : std::runtime_error(description(kind)), kind_(kind) {}

}  // namespace halvo
