#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>

#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/Log.h"
#include "Platform/Desktop/DesktopProbes.h"
#include "Platform/Desktop/NowPlaying.h"
#include "agents/Signals/SignalsStore.h"

namespace halvo {

/// The loop of `Signals`: every 1.5 s one look at the desktop and one row about it. It outlives whatever goes wrong: without a data root it
/// records nothing and waits, without a display it records what is left, on a full disk it tries again; each is said once, not each turn.
class SignalsSampler {
 public:
  /// Milliseconds from one sample to the next. Readers count minutes by it.
  static constexpr std::int64_t periodMs = 1'500;
  /// Samples from one checkpoint to the next: five minutes.
  static constexpr int samplesPerCheckpoint = 200;

  /// Where to write now.
  struct Root {
    std::optional<std::filesystem::path> database = {};  ///< absent: nowhere, for the reason given
    std::string whyNot = {};
  };
  /// The world that it is handed.
  struct Ports {
    DesktopProbes& probes;
    NowPlaying& nowPlaying;
    Clock clock;
    std::function<Root()> root;                                ///< asked each turn, as a volume may come and go
    std::function<std::optional<std::string>()> declaredTask;  ///< a blank text counts as none
    LogSink log = {};
  };
  explicit SignalsSampler(Ports ports);
  ~SignalsSampler();

  /// Samples until stopped, on a schedule that doesn't drift: a late turn doesn't put off the next ones. After a sleep or a change of the
  /// clock it begins a new schedule, without making up for what was missed. Never throws.
  void run(const std::stop_token& stop);
  /// One turn at a given time. Whether a row was written. Never throws.
  bool turn(std::int64_t nowMs);

 private:
  void say(const std::string& trouble);
  void checkpoint();

  Ports ports_;
  std::unique_ptr<SignalsStore> store_;
  std::string trouble_;  ///< what was said last and still holds; empty: all is well
  int sinceCheckpoint_ = 0;
};

}  // namespace halvo
