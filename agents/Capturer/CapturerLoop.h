#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/Log.h"
#include "CaptureShared/Privacy/CaptureFilterTrustFlag.h"
#include "CaptureShared/Privacy/Denylist.h"
#include "CaptureShared/Recording/SymmetricKey.h"
#include "Platform/Desktop/DesktopProbes.h"
#include "Platform/Screen/ScreenCapture.h"
#include "agents/Capturer/DisplayRecorder.h"

namespace halvo {

/// The loop of `Capturer`: twice a second a picture of each display, denied windows painted out, into that display's recording. A locked
/// session, a display that is gone or has another size, a desktop that can't tell its windows: no frames, and a new session afterwards.
class CapturerLoop {
 public:
  struct Ports {
    DesktopProbes& probes;
    ScreenCapture& screen;
    Clock clock;
    Calendar calendar = Calendar::utc();
    std::filesystem::path root = {};  ///< of the data
    SymmetricKey key;
    std::int64_t generation = 1;
    std::filesystem::path ffmpeg = {};
    int widthTarget = 0;  ///< of the pictures, as `FrameEncoder` has it
    /// Whether the person has paused the recording: then `run` ends.
    std::function<bool(std::int64_t nowMs)> isPaused = {};
    Denylist denylist;
    /// Called at each turn at which the windows can't be listed, and once with false when they can again.
    std::function<void(bool isUnreliable)> filterFault = {};
    LogSink log = {};
  };
  explicit CapturerLoop(Ports ports);

  /// Records until stopped or paused, which answers 0, or until it can't go on: then the code of `CapturerExit`. Either way the files are closed
  /// well, if ffmpeg does its part within half a second. Throws nothing but what `CapturerExit` has no code for.
  std::int32_t run(const std::stop_token& stop);
  /// One turn. Throws `CaptureEnd`, `ScreenCaptureError`, `Cancelled`.
  void turn(const std::stop_token& stop);
  /// Ends every session, and kills an ffmpeg that takes longer. Throws `CaptureEnd` after all of them are ended.
  void endSessions(std::chrono::milliseconds within = std::chrono::seconds(5));

  const CaptureFilterTrustFlag& filterTrust() const { return trust_; }

 private:
  /// What must not be seen now; absent when nothing may be.
  std::optional<std::vector<Rect>> maskNow();
  void pump();
  void pause(const std::string& why);
  void follow(const std::vector<ScreenDisplay>& displays);
  struct Captured {
    DisplayRecorder* recorder;
    std::int64_t atMs;  ///< when the picture in its room was taken, within half a frame
  };
  std::vector<Captured> captureAll(const std::stop_token& stop);

  Ports ports_;
  CaptureFilterTrustFlag trust_;
  bool hadFault_ = false;
  std::map<int, std::unique_ptr<DisplayRecorder>> recorders_;
  std::string paused_;  ///< why; empty: it records
};

}  // namespace halvo
