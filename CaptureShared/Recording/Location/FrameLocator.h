#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <variant>

#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/Recording/Location/DirectoryListingCache.h"
#include "CaptureShared/Recording/Location/SegmentList.h"
#include "CaptureShared/Recording/Location/SidecarRow.h"

/// Finds the recording that holds the frame of a moment. The frame is shown as the evidence of that moment, so whatever is missing, damaged
/// or doubtful answers "nothing near here". Nothing throws; safe from any thread.
namespace halvo::FrameLocator {

inline constexpr double fps = 2.0;                         ///< frames per second of every recording
inline constexpr std::int64_t judgedToleranceMs = 90'000;  ///< for the frame of a judged moment

struct Located {
  std::filesystem::path file;
  std::int64_t frameIndex = 0;         ///< within the recording session
  std::int64_t frameRealMs = 0;        ///< when the frame was captured, milliseconds since the epoch
  std::int64_t segmentStartFrame = 0;  ///< the session's frame that the file begins with

  /// Where the frame lies in the file.
  double seekSec() const { return static_cast<double>(frameIndex - segmentStartFrame) / fps; }
  bool operator==(const Located&) const = default;
};
struct NoFrameNearby {
  bool operator==(const NoFrameNearby&) const = default;
};
/// The frame is from before the sidecar had the session's columns.
struct UnsupportedEra {
  bool operator==(const UnsupportedEra&) const = default;
};
using LocateResult = std::variant<Located, NoFrameNearby, UnsupportedEra>;

struct Moment {
  std::int64_t atMs = 0;
  int display = 0;
  std::int64_t toleranceMs = judgedToleranceMs;  ///< a frame exactly this far away is taken
  std::filesystem::path root = DataPaths::dataRoot();
  DirectoryListingCache& cache = DirectoryListingCache::shared();
};
/// Reads some KiB of the sidecar, whatever its size, and the session's segments file.
LocateResult locateDetailed(const Moment& moment);
/// Absent for anything but a located frame.
std::optional<Located> locate(const Moment& moment);

/// The rest of a locate, once the nearest row is found: the same for one frame and for many. `segmentsOf` reads a segments file; its answer
/// outlives the call.
LocateResult locateRow(const std::optional<SidecarRow>& nearest, const Moment& moment,
                       const std::function<const SegmentList&(const std::filesystem::path&)>& segmentsOf);

}  // namespace halvo::FrameLocator
