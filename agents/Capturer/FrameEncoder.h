#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>

#include "CaptureShared/Foundation/FileHandle.h"

namespace halvo {

/// One ffmpeg that turns raw pictures into a Matroska stream of H.264, one cluster a frame. It dies with the thread that made it.
class FrameEncoder {
 public:
  struct Size {
    int width = 0, height = 0;  ///< pixels, even
    bool operator==(const Size&) const = default;
  };
  struct Setup {
    std::filesystem::path ffmpeg = {};
    int width = 0, height = 0;  ///< even; of the pictures that are fed
    int widthTarget = 0;        ///< what is wider is encoded as wide as this; 0: as it is
    /// Takes what ffmpeg writes. What it throws passes through the calls below.
    std::function<void(std::string_view)> sink = {};
  };
  /// Throws `std::system_error` when ffmpeg can't be started.
  explicit FrameEncoder(Setup setup);
  FrameEncoder(const FrameEncoder&) = delete;
  FrameEncoder& operator=(const FrameEncoder&) = delete;
  /// Kills it when it hasn't ended.
  ~FrameEncoder();

  /// ffmpeg's words, with pictures of that size on its standard input.
  static std::vector<std::string> arguments(int width, int height, int widthTarget = 0);
  /// The size that pictures of `fed` are encoded in: the shape is kept, and nothing is made larger.
  static Size encodedSize(const Size& fed, int widthTarget);

  /// Gives it one picture of width × height × 4 bytes. Throws `CaptureEnd` (videoSinkFailed) when ffmpeg ended or takes none for 5 s.
  void feed(std::span<const std::uint8_t> picture);
  /// Takes what ffmpeg has written by now, without waiting.
  void pump();
  /// There are no more pictures: ffmpeg writes what it still has, and ends. Doesn't wait.
  void closeInput() { input_.reset(); }
  /// Takes the rest. Throws `CaptureEnd` when ffmpeg failed or hasn't ended at the deadline.
  void finish(std::chrono::steady_clock::time_point deadline);

 private:
  /// Waits until something can be read, or written when there is something to write; takes what can be read. Whether it can be written.
  bool turn(bool wantsToWrite, int timeoutMs);
  bool isReadingDone() const { return !output_ && !errors_; }
  [[noreturn]] void fail(const std::string& how) const;

  Setup setup_;
  pid_t pid_ = 0;
  FileHandle input_, output_, errors_;
  std::string said_;    ///< the end of its standard error
  std::string buffer_;
};

}  // namespace halvo
