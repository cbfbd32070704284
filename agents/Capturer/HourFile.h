#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <span>
#include <string>

#include "CaptureShared/Recording/VideoStreamEncryptor.h"
#include "agents/Capturer/FrameEncoder.h"
#include "agents/Capturer/MatroskaPieces.h"

namespace halvo {

/// One hour file of one display while it is written. Nothing but sealed bytes reaches the disk, and each chunk ends behind a whole element,
/// so the file plays at any moment, wherever the recorder dies.
class HourFile {
 public:
  struct Setup {
    std::filesystem::path folder = {};
    std::string hourPrefix = {};  ///< as in "2026-11-16T03"
    const SymmetricKey& key;
    std::int64_t generation = 1;
    std::filesystem::path ffmpeg = {};
    int width = 0, height = 0;  ///< even
    int widthTarget = 0;        ///< as `FrameEncoder` has it
  };
  /// Makes "<hour>.mkv", or the first of "<hour>.part2.mkv", … that isn't there. Throws `CaptureEnd`.
  explicit HourFile(const Setup& setup);

  std::string filename() const { return path_.filename().string(); }
  /// Of the pictures in it.
  FrameEncoder::Size size() const { return size_; }
  /// Throws `CaptureEnd`, as do all of these.
  void feed(std::span<const std::uint8_t> picture);
  void pump();
  void closeInput() { encoder_.closeInput(); }
  void finish(std::chrono::steady_clock::time_point deadline);

  /// How many frames, from the file's first on, a reader finds in it now.
  std::int64_t framesOnDisk() const { return framesOnDisk_; }

 private:
  void take(std::string_view bytes);

  std::filesystem::path path_;
  FrameEncoder::Size size_;
  FileHandle file_;
  VideoStreamEncryptor encryptor_;
  MatroskaPieces pieces_;
  std::string whole_;
  std::int64_t framesOnDisk_ = 0;
  bool hasBegun_ = false;
  FrameEncoder encoder_;
};

}  // namespace halvo
