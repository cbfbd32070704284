#include "CaptureShared/Labels/Clips/MomentClips.h"

#include <system_error>

#include "CaptureShared/Foundation/FFmpegResolver.h"
#include "CaptureShared/Labels/Clips/RampClipPlan.h"
#include "CaptureShared/Labels/Clips/RampProxyEncoder.h"

namespace halvo {

MomentClip MomentClips::make(std::int64_t judgedInstantMs, const std::stop_token& stop) {
  const auto plan = RampClipPlan::plan({.judgedInstantMs = judgedInstantMs, .root = setup_.root});
  const auto ffmpeg = FFmpegResolver::resolve(setup_.environment);
  if (!folder_) folder_.emplace(setup_.environment);
  const auto file = folder_->path() / "moment.mp4";
  std::error_code ignored;
  std::filesystem::remove(file, ignored);
  const auto cost = RampProxyEncoder::encode(plan, file, {.ffmpeg = ffmpeg, .keyForGeneration = setup_.keyForGeneration}, stop);
  return {.file = file,
          .fps = plan.outputFps,
          .frameCount = cost.frameCount,
          .fromMs = plan.frames.front().sourceRealMs,
          .gapShare = plan.gapShare()};
}

std::function<bool(std::int64_t)> MomentClips::isRenderable(const std::filesystem::path& root) {
  return [root, toleranceMs = RampClipPlan::Config::review().toleranceMs](std::int64_t atMs) {
    return FrameLocator::locate({.atMs = atMs, .toleranceMs = toleranceMs, .root = root}).has_value();
  };
}

}  // namespace halvo
