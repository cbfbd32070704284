#pragma once

#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <stop_token>
#include <string>

#include "CaptureShared/Labels/Clips/RampClipPlan.h"
#include "CaptureShared/Recording/VideoDecryption.h"

/// Makes an MP4 file of a planned clip, so that it plays without seeking in hours of video.
namespace halvo::RampProxyEncoder {

/// One encode, measured.
struct Cost {
  std::filesystem::path url = {};
  int frameCount = 0, framesRequested = 0;              ///< of the clip
  int sourceFrameCount = 0, sourceFramesRequested = 0;  ///< different recorded frames
  std::int64_t byteCount = 0;
  double decodeSeconds = 0, encodeSeconds = 0, totalSeconds = 0;
  int pixelWidth = 0, pixelHeight = 0;
};

class EncodeError : public std::runtime_error {
 public:
  enum class Kind {
    writerSetupFailed,  ///< ffmpeg can't be started, or there is no room for its files
    writerFailed,       ///< it made no clip
    emptyPlan,
    noDecodableFrames,
    pixelBufferUnavailable
  };
  EncodeError(Kind kind, const std::string& text) : std::runtime_error(text), kind_(kind) {}
  Kind kind() const { return kind_; }

 private:
  Kind kind_;
};

struct Setup {
  std::filesystem::path ffmpeg = {};
  VideoDecryption::KeyForGeneration keyForGeneration = {};
  int pixelWidth = 1280, pixelHeight = 720;  ///< every frame is fitted into it
};
/// Writes `output`, a new file of 0600 in a folder that only its owner can enter; meanwhile that folder also has the clip's single frames,
/// in one of 0700 that goes before the call returns. Sealed hours reach ffmpeg through a pipe, never as a file in the clear. A gap is a
/// plain card that says so, and so is a frame that can't be read. Throws `EncodeError`, what `keyForGeneration` throws, `Cancelled`; then
/// there is no `output`.
Cost encode(const RampClipPlan::Plan& plan, const std::filesystem::path& output, const Setup& setup, const std::stop_token& stop = {});

}  // namespace halvo::RampProxyEncoder
