#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <stop_token>

#include "CaptureShared/Foundation/Environment.h"
#include "CaptureShared/Labels/Clips/ClipFolder.h"
#include "CaptureShared/Recording/VideoDecryption.h"

namespace halvo {

/// A clip that was made, and what it shows.
struct MomentClip {
  std::filesystem::path file = {};
  double fps = 10;
  int frameCount = 0;
  std::int64_t fromMs = 0;  ///< its first frame was recorded then; what lies before it is no gap in the clip
  double gapShare = 0;      ///< 0 to 1
};

/// Clips of single moments as somebody looks at them, each gone when the next one is made. One thread at a time.
class MomentClips {
 public:
  struct Setup {
    std::filesystem::path root = {};
    Environment environment = {};
    VideoDecryption::KeyForGeneration keyForGeneration = {};
  };
  explicit MomentClips(Setup setup) : setup_(std::move(setup)) {}

  /// Throws `RampClipPlan::PlanError`, `FFmpegResolver::NotFound`, what `RampProxyEncoder::encode` throws, and what `ClipFolder` does. What
  /// any of them says is told in place of the clip.
  MomentClip make(std::int64_t judgedInstantMs, const std::stop_token& stop);
  /// Whether there is a frame near enough for a clip of the moment to end on.
  static std::function<bool(std::int64_t judgedInstantMs)> isRenderable(const std::filesystem::path& root);
  /// Nothing is left on the disk.
  void drop() { folder_.reset(); }

 private:
  Setup setup_;
  std::optional<ClipFolder> folder_;
};

}  // namespace halvo
