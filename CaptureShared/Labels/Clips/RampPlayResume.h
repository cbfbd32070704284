#pragma once

namespace halvo {

/// What a player of a clip does on a new play command.
enum class RampPlayResume {
  restartFromHead,       ///< it had come to the end
  clearDetourAndResume,  ///< a single frame was looked at meanwhile: back to where the clip stood
  resumeAsIs
};
/// A detour counts before the end: the clip goes on from where it was left.
constexpr RampPlayResume rampPlayResume(bool isOnDetour, bool isAtEnd) {
  if (isOnDetour) return RampPlayResume::clearDetourAndResume;
  return isAtEnd ? RampPlayResume::restartFromHead : RampPlayResume::resumeAsIs;
}

}  // namespace halvo
