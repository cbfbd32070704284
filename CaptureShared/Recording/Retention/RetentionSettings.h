#pragma once

#include <cstdint>
#include <optional>

#include "CaptureShared/Recording/Retention/VideoRetention.h"

namespace halvo {

/// What the user wants deleted, and when.
struct RetentionSettings {
  static constexpr std::int64_t defaultLabelLookbackHours = 6;
  static constexpr std::int64_t defaultLabelLookaheadHours = 1;

  VideoRetention::RetentionPolicy policy = {};
  bool deleteOnRestart = false;                              ///< everything from before the machine's start, once a start
  std::optional<std::int64_t> lastRestartSweepBootMs = {};   ///< the start that the last finished restart sweep was for
  std::int64_t labelLookbackHours = defaultLabelLookbackHours;    ///< before a labelled moment, kept
  std::int64_t labelLookaheadHours = defaultLabelLookaheadHours;  ///< after it, kept

  bool isAnySweepEnabled() const { return deleteOnRestart || !std::holds_alternative<VideoRetention::Disabled>(policy); }
  bool operator==(const RetentionSettings&) const = default;
};

}  // namespace halvo
