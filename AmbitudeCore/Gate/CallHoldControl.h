#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>

#include "CaptureShared/Foundation/Environment.h"

namespace halvo {

/// Whether a call in progress holds the coach back, and whether the person has overridden that for one call.
struct CallHoldControl {
  struct Override {
    std::int64_t episodeStartMs = 0;  ///< the call it is about: the time of its `in_call_began`
    std::int64_t overriddenAtMs = 0;
    bool operator==(const Override&) const = default;
  };

  bool enabled = true;
  std::optional<Override> override_ = {};

  /// On unless AMBITCAP_CALL_PAUSE is "0", "false", "no" or "off". The override file holds "episode_start_ms" and
  /// "overridden_at_ms"; one that is missing, unreadable or malformed is no override, so the hold stands.
  static CallHoldControl read(const Environment& environment, const std::filesystem::path& overrideFile);

  bool operator==(const CallHoldControl&) const = default;
};

}  // namespace halvo
