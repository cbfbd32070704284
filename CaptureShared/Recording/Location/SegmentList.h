#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace halvo::FrameLocator {

/// One hour file of a recording session. The frames are half open: start ≤ frame < end.
struct Segment {
  std::string filename;  ///< as the segment was named at its start; on the disk it may carry another ".part<N>"
  std::int64_t startFrame = 0, endFrame = 0;
  bool operator==(const Segment&) const = default;
};

/// `segments-<sessionStartMs>.csv`: "filename,startFrame,endFrame" for each segment of one session, in order. A line that is no such row is
/// passed over.
struct SegmentList {
  std::vector<Segment> segments = {};
  bool lastLineIsRow = true;  ///< false: the newest segment is not known, so no frame past the known ones may be given to the last of them

  static SegmentList parse(std::string_view text);
  /// Empty when the file is missing, can't be read or is larger than any session's. Never throws.
  static SegmentList read(const std::filesystem::path& file);
  /// The first segment that holds the frame; failing that the last one when the frame is at or past its end, as in a session that still
  /// runs. Null otherwise.
  const Segment* holding(std::int64_t frame) const;
  bool operator==(const SegmentList&) const = default;
};

std::filesystem::path segmentsPath(const std::filesystem::path& folder, std::int64_t sessionStartMs);

}  // namespace halvo::FrameLocator
