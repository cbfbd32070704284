#pragma once

/// What a capture run is started with, as `manifest.json` tells it.
namespace halvo::CaptureProfile {

inline constexpr double fps = 2;                   ///< frames per second and display
inline constexpr double keyframeIntervalSec = 30;  ///< at most; a frame is reached from the keyframe before it

}  // namespace halvo::CaptureProfile
