#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <utility>

#include "CaptureShared/Recording/Supervision/CaptureFault.h"
#include "CaptureShared/Recording/Supervision/ComponentHealth.h"

/// The one line about the state of things that a person sees all day. Pure.
namespace halvo::SidebarHealthStrip {

enum class Tone { normal, warning };
struct State {
  std::string symbol;  ///< an icon's name in the freedesktop icon theme
  std::string title;
  std::string detail;  ///< may be empty
  Tone tone = Tone::normal;
  bool operator==(const State&) const = default;
};

/// The person has paused the recording.
struct RecordingPause {
  std::string words;          ///< "paused until 16:30"
  bool isUnreadable = false;  ///< or may have: nobody can tell
};

struct Facts {
  std::optional<std::string> dataRootTrouble = {};  ///< why there is nowhere to record to
  std::optional<CaptureFault> fault = {};           ///< a stale one counts as none, and so does any while recording is paused
  std::optional<RecordingPause> recordingPause = {};
  std::span<const std::pair<ComponentHealth::Component, ComponentHealth::Status>> components = {};
  std::int64_t nowMs = 0;
};
/// What matters most: a data root that is away outranks a capture fault, that a silent component, that a pause for a call. That
/// recording is paused is said beside whatever outranks it; while that can't be told, it ranks as a capture fault. A component that is off
/// by choice, and that no pause explains, is told as not installed: whose choice it was nobody knows.
State state(const Facts& facts);

/// "45s", "12m", "2h 5m"; below 0 counts as 0.
std::string brief(double seconds);

}  // namespace halvo::SidebarHealthStrip
