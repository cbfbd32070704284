#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Recording/Supervision/RecordingControls.h"

namespace halvo {

/// Whether the screen is being recorded, and how.
struct RecordingCard {
  std::string line = {};  ///< "Recording paused until 16:30", "Recording; the last frame came 2s ago"
  bool isPaused = false;
  bool isWarning = false;  ///< nothing is recorded, and nobody asked for that
  RecordingControls::Quality quality = RecordingControls::Quality::full;
  bool operator==(const RecordingCard&) const = default;

  struct Moment {
    RecordingControls controls = {};
    std::optional<std::int64_t> lastFrameMs = {};   ///< absent: never
    std::optional<std::int64_t> lastLifeMs = {};    ///< of the recorder or, while the session is locked, of the sampler that says so
    std::optional<std::int64_t> controlledMs = {};  ///< when the recorder was last told anything, or its pause was over
    std::int64_t nowMs = 0;
    const Calendar& calendar;
  };
  static RecordingCard of(const Moment& moment);
  /// Of a data root as it is. Reads a few small things; never throws.
  static RecordingCard read(const std::filesystem::path& dataRoot, std::int64_t nowMs, const Calendar& calendar);
};

}  // namespace halvo
