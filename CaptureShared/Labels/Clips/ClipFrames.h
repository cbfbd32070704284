#pragma once

#include <filesystem>
#include <optional>
#include <stop_token>
#include <string>

#include <sys/types.h>

#include "CaptureShared/Foundation/FileHandle.h"

namespace halvo {

/// The frames of a clip as pictures in memory: a child ffmpeg decodes and scales them into a pipe, and waits there until the next one is
/// asked for. One thread at a time.
class ClipFrames {
 public:
  struct Clip {
    std::filesystem::path ffmpeg = {}, file = {};
    double fps = 10;
    int width = 0, height = 0;  ///< of the pictures; a frame of another shape gets bars
  };
  explicit ClipFrames(Clip clip) : clip_(std::move(clip)) {}
  ClipFrames(const ClipFrames&) = delete;
  ClipFrames& operator=(const ClipFrames&) = delete;
  ~ClipFrames() { close(); }

  /// The frame of a number from 0: `width * height * 4` bytes, blue, green, red and one to ignore. The next one is read on from the last;
  /// any other starts the decoder anew. Absent behind the last frame and for a file that can't be decoded. Throws `std::system_error` when
  /// ffmpeg can't be started or falls silent, `Cancelled`.
  std::optional<std::string> frame(int number, const std::stop_token& stop);
  /// Ends the decoder; a later frame starts another.
  void close();

 private:
  void open(int number);

  Clip clip_;
  pid_t child_ = -1;
  FileHandle pipe_;
  int next_ = 0;  ///< what the pipe holds next
};

}  // namespace halvo
