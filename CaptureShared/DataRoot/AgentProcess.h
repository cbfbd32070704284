#pragma once

#include <functional>
#include <stop_token>
#include <string>

#include "CaptureShared/Foundation/TerminationSignals.h"

namespace halvo {

/// What every agent is before it is anything else: private in its files and its memory, deaf to SIGPIPE, logging, and ended in order by
/// SIGTERM, SIGINT or SIGHUP. The first object of `main`: it must be made before any thread.
class AgentProcess {
 public:
  /// `name` is also the log's.
  explicit AgentProcess(const std::string& name);

  /// The name of the folder of all agents' logs.
  static constexpr const char* logSubdirectory = "AmbitCapture";
  /// How long a loop has to end once it was asked: whoever ends an agent wants it done within a second.
  static constexpr double endingSec = 0.8;

  std::stop_token stop() const { return signals_.token(); }
  /// Ends the process in order, as SIGTERM does. From any thread.
  void requestStop() { signals_.requestStop(); }

  /// Runs `loop` until it returns or the process is to end. A loop that does not end in time (a display that hangs in its greeting can't be
  /// hurried) ends with the process, so everything it writes must be whole at any moment. The exit status.
  int run(const std::function<void(const std::stop_token&)>& loop, double maxEndingSec = endingSec) const;

 private:
  /// Made first: the mask and the memory's privacy hold for everything behind them.
  struct Privacy {
    Privacy();
  };
  Privacy privacy_;
  TerminationSignals signals_;
};

}  // namespace halvo
