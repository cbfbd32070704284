#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Recording/Location/SegmentList.h"

namespace halvo {

/// A text file that only its owner appends to, whole lines at a time. A stump that a killed owner left is cut off when it is opened.
class LineFile {
 public:
  /// Made 0600 when it isn't there. Throws `std::system_error`.
  explicit LineFile(std::filesystem::path file);
  /// One write. When not all of it fits, nothing of it stays. Throws `std::system_error`.
  void append(std::string_view lines);

 private:
  std::filesystem::path path_;
  FileHandle file_;
};

/// The text files beside a display's recordings, by which their frames are found again. Every call throws `std::system_error`.
class CaptureIndex {
 public:
  struct Row {
    std::int64_t realTsMs = 0, frameIndexInSession = 0, sessionStartMs = 0;
  };
  /// What the frames from this one on are like, until the next such line.
  struct Meta {
    Row frame = {};
    int width = 0, height = 0;  ///< pixels
    std::size_t maskedWindows = 0;
  };

  CaptureIndex(int display, const std::filesystem::path& root);

  /// A session's start that names no session yet: `nowMs`, or the first free millisecond behind it.
  std::int64_t freeSessionStart(std::int64_t nowMs) const;
  /// Replaces the session's segments file.
  void writeSegments(std::int64_t sessionStartMs, const std::vector<FrameLocator::Segment>& segments) const;
  void appendRows(const std::vector<Row>& rows);
  void appendMeta(const Meta& meta);

 private:
  std::filesystem::path folder_;
  LineFile timestamps_, meta_;
};

}  // namespace halvo
