#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>

#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/Log.h"
#include "CaptureShared/Recording/Supervision/RecordingControls.h"
#include "agents/Supervisor/CaptureFaultKeeper.h"
#include "agents/Supervisor/SupervisedChild.h"

namespace halvo {

/// The loop of `Supervisor`: keeps the sampler and the recorder running, each by a gate of its own, tells what keeps the recorder from
/// recording, and has old recordings deleted. Without a data root it starts nothing; while the person has paused the recording, no recorder.
class SupervisorLoop {
 public:
  static constexpr double turnSec = 0.5;
  /// From the start to the first sweep: the machine has better things to do while it starts.
  static constexpr std::int64_t firstSweepMs = 180'000;
  static constexpr std::int64_t sweepPeriodMs = 3'600'000;

  struct Ports {
    std::filesystem::path signals, capturer;
    std::filesystem::path faultFile;
    RespawnGate::Config gate = {};
    Clock clock;
    std::function<std::int64_t()> steadyMs = steadyNowMs;
    std::function<std::optional<std::string>()> dataRootTrouble;  ///< why there is nowhere to record to; absent: there is
    std::function<void(const RecordingControls&)> captureRunStarts;  ///< in front of each of the recorder's starts; may throw
    std::function<RecordingControls()> controls = [] { return RecordingControls{}; };  ///< as of now; doesn't throw
    Calendar calendar = Calendar::utc();                                               ///< of the times in log lines
    std::function<std::optional<bool>()> isScreenLocked;          ///< absent: can't be told, and counts as unlocked
    std::function<void()> sweep;                                  ///< deletes old recordings; may throw
    LogSink log = {};
  };
  explicit SupervisorLoop(Ports ports);

  /// Runs until stopped; both children are gone when it returns. Never throws.
  void run(const std::stop_token& stop);
  /// One turn. Never throws.
  void turn();

  const SupervisedChild& signals() const { return signals_; }
  const SupervisedChild& capturer() const { return capturer_; }

 private:
  void say(std::string& last, const std::string& line);
  /// Logs a failure of one step and goes on.
  void attempt(const char* what, std::string& last, const std::function<void()>& step);
  void noteScreenLock();
  /// Ends a recorder that must not run, or not with what it was started with.
  void obey(const RecordingControls& wanted, std::int64_t nowMs);
  void startWhatIsDue(std::int64_t steadyMs, std::int64_t nowMs);
  void sweepIfDue(std::int64_t steadyMs);

  Ports ports_;
  CaptureFaultKeeper fault_;
  SupervisedChild signals_, capturer_;
  RecordingControls controls_;  ///< of this turn
  bool isPaused_ = false;
  RecordingControls::Quality capturersQuality_ = {};  ///< the recorder was started with
  std::int64_t sweepDueMs_;
  std::string rootTrouble_, manifestTrouble_, sweepTrouble_, lockTrouble_;
};

}  // namespace halvo
