#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <variant>

namespace halvo::RampSampleSelector {

/// How far the making of a batch has come.
namespace RampLoadPhase {
struct ScreeningCandidates {
  std::int64_t found = 0, requested = 0, screened = 0;
  bool operator==(const ScreeningCandidates&) const = default;
};
/// A moment's frame is being looked for on the disk.
struct LocatingFrames {
  std::int64_t resolved = 0, total = 0;
  bool operator==(const LocatingFrames&) const = default;
};
struct ReadingLogs {
  bool operator==(const ReadingLogs&) const = default;
};
struct Ready {
  bool operator==(const Ready&) const = default;
};
using Phase = std::variant<ScreeningCandidates, LocatingFrames, ReadingLogs, Ready>;
/// For the progress display; empty when ready.
std::string text(const Phase& phase);
}  // namespace RampLoadPhase

/// Whether the frames of a moment can be found. It reads the disk, so it is asked last.
using IsRenderable = std::function<bool(std::int64_t atMs)>;

/// Counts what a selection asks, and tells of it. One selection at a time.
struct RampScreeningReporter {
  std::int64_t found = 0, screened = 0, requested = 0;
  std::function<void(const RampLoadPhase::Phase&)> onProgress = {};

  /// `isRenderable` with the counting; this object outlives it.
  IsRenderable watching(IsRenderable isRenderable);
};

}  // namespace halvo::RampSampleSelector
