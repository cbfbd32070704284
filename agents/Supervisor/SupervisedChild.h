#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include <sys/types.h>

#include "CaptureShared/Foundation/Log.h"
#include "CaptureShared/Recording/Supervision/RespawnGate.h"

namespace halvo {

/// One program that is kept running: in its own process group, ended by the kernel when the thread that started it ends. Times are
/// milliseconds on a steady clock.
class SupervisedChild {
 public:
  /// How long it has between being asked to end and being made to: an agent takes a second at most.
  static constexpr double endingSec = 1.4;

  struct Options {
    std::filesystem::path program;  ///< its file name is also its name in the log
    RespawnGate::Config gate = {};
    LogSink log = {};
  };
  explicit SupervisedChild(Options options) : options_(std::move(options)), gate_(options_.gate) {}
  SupervisedChild(const SupervisedChild&) = delete;
  SupervisedChild& operator=(const SupervisedChild&) = delete;
  ~SupervisedChild();

  struct Exit {
    std::int32_t code = 0;  ///< its exit code, or 128 + signal
    double ranForSec = 0;
    RespawnGate::Decision decision = {};
  };
  /// What it ended with, once; the next start is then set. Absent too for the end of one that was retired.
  std::optional<Exit> noteExit(std::int64_t steadyMs);
  bool isDue(std::int64_t steadyMs) const { return pid_ == 0 && steadyMs >= dueMs_; }
  /// Whether it runs now. A program that can't be started is tried again after a while.
  bool start(std::int64_t steadyMs);
  /// True once a run, when it has lasted long enough to be healthy.
  bool becomesHealthy(std::int64_t steadyMs);

  /// Asks it to end for a reason that is not its own, and doesn't wait: the end counts as no failure, and it is due again at once.
  /// `noteExit` makes it end when it takes too long.
  void retire();
  /// Asks it to end; `waitForEnd` makes it, and answers when it is gone.
  void askToEnd();
  void waitForEnd();

  std::string name() const { return options_.program.filename().string(); }
  pid_t pid() const { return pid_; }  ///< 0: it doesn't run
  RespawnGate& gate() { return gate_; }

 private:
  void say(const std::string& line);

  Options options_;
  RespawnGate gate_;
  pid_t pid_ = 0;
  std::int64_t startedMs_ = 0, dueMs_ = 0;
  std::int64_t endByMs_ = 0;
  bool isHealthy_ = false, isRetired_ = false;
  std::string told_;  ///< the last line, so that the same is not said each minute
};

}  // namespace halvo
