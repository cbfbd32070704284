#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Recording/Location/SegmentList.h"
#include "Platform/Screen/ScreenCapture.h"
#include "agents/Capturer/CaptureIndex.h"
#include "agents/Capturer/HourFile.h"

namespace halvo {

/// Records one display: its sessions, its hour files, and the index of both. A frame's row is written once the frame itself is on the disk,
/// so every row that is there finds its frame.
class DisplayRecorder {
 public:
  struct Setup {
    ScreenDisplay display = {};
    std::filesystem::path root = {};  ///< of the data
    SymmetricKey key;
    std::int64_t generation = 1;
    std::filesystem::path ffmpeg = {};
    int widthTarget = 0;  ///< as `FrameEncoder` has it
    Calendar calendar = Calendar::utc();  ///< names the hours
  };
  explicit DisplayRecorder(Setup setup);

  const ScreenDisplay& display() const { return setup_.display; }
  /// What is recorded of the display: its rectangle, less the last row or column where there is an odd number of them, which the video
  /// format can't hold.
  const Rect& recorded() const { return recorded_; }
  /// Room for one picture of `recorded()`.
  std::span<std::uint8_t> room() { return room_; }

  /// Records the picture in `room()` as that of `nowMs`. A frame that comes too early is dropped, and one that doesn't fit in the session
  /// begins another. Throws `CaptureEnd`.
  void record(std::int64_t nowMs, std::size_t maskedWindows);
  /// Writes what ffmpeg has by now, and the rows of those frames. Throws `CaptureEnd`.
  void pump();
  /// Ends the session, if there is one: the next frame begins another. Two steps, so that several displays end at the same time; the first
  /// doesn't wait. Throws `CaptureEnd`, and then the session is ended all the same.
  void beginEnd();
  void end(std::chrono::steady_clock::time_point deadline);

 private:
  void beginSegment(std::int64_t firstFrame, std::string hourPrefix);
  void endSegment(std::chrono::steady_clock::time_point deadline);
  void writeRows();

  struct Session {
    std::int64_t startMs = 0, lastIndex = -1;
    std::optional<std::size_t> maskedWindows = {};  ///< as of the last line about it
    std::vector<FrameLocator::Segment> segments = {};
  };

  Setup setup_;
  Rect recorded_;
  std::vector<std::uint8_t> room_;
  CaptureIndex index_;
  std::optional<Session> session_;
  std::string hourPrefix_;
  std::unique_ptr<HourFile> hour_;
  std::deque<CaptureIndex::Row> waiting_;  ///< of frames that are not on the disk yet
};

}  // namespace halvo
