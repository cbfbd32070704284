#pragma once

#include <array>
#include <filesystem>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <string_view>

#include "CaptureShared/Foundation/Environment.h"
#include "CaptureShared/Recording/VideoDecryption.h"

namespace halvo {

/// Turns a recording into a file that any player opens: its streams copied into MP4 by ffmpeg, never encoded again, and kept in the
/// temporary folder until that is emptied. Safe from any thread; two at once of one recording each make their own, and the last one named
/// stays.
class VideoContainerBridge {
 public:
  class BridgeError : public std::runtime_error {
   public:
    enum class Kind { sourceMissing, ffmpegUnavailable, remuxFailed, keyUnavailable };
    static BridgeError sourceMissing(const std::filesystem::path& path);
    static BridgeError ffmpegUnavailable(const std::string& reason);
    static BridgeError remuxFailed(const std::string& file, const std::string& detail);
    static BridgeError keyUnavailable(const std::string& reason);
    Kind kind() const { return kind_; }

   private:
    BridgeError(Kind kind, const std::string& text) : std::runtime_error(text), kind_(kind) {}
    Kind kind_;
  };

  /// What players open as it is; compared in lower case.
  static constexpr std::array<std::string_view, 3> nativeExtensions{"mp4", "m4v", "mov"};

  /// The environment says where ffmpeg and the temporary folder are.
  VideoContainerBridge(Environment environment, VideoDecryption::KeyForGeneration keyForGeneration)
      : environment_(std::move(environment)), keyForGeneration_(std::move(keyForGeneration)) {}

  /// The recording itself when it is native, else its copy, made when there is none yet. A copy is not compared with its source. Throws
  /// `BridgeError`, `std::system_error` for the cache's folder, `std::runtime_error` without a private temporary folder, `Cancelled`.
  std::filesystem::path playableURL(const std::filesystem::path& source, int display, const std::stop_token& stop = {}) const;
  bool needsRemux(const std::filesystem::path& source, int display) const;
  /// Where the copy is or would be.
  std::filesystem::path cachedURL(const std::filesystem::path& source, int display) const;
  /// A folder for each display, since two displays' hours have one name.
  std::filesystem::path remuxCacheDir(int display) const;

 private:
  void remux(const std::filesystem::path& source, const std::filesystem::path& cached, const std::stop_token& stop) const;

  Environment environment_;
  VideoDecryption::KeyForGeneration keyForGeneration_;
};

}  // namespace halvo
