#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "AmbitudeCore/Backends/Decorators/DecoratedCall.h"
#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/Log.h"

namespace halvo {

/// Another backend, asked again after a failure that may pass. A first timeout is retried; a second one has cost enough.
class RetryingModelBackend : public DecoratingModelBackend {
 public:
  struct Settings {
    std::string name = {};                                          ///< of the backend, for the log
    int maxAttempts = 1;                                            ///< the first included
    std::vector<double> backoffSeconds = {};                        ///< before each retry; the last stands for all behind it
    std::function<bool()> shouldKeepWaiting = [] { return true; };  ///< asked before each tick of a wait
    /// Waits that long, a second at most; throws `Cancelled` when stopped.
    std::function<void(double sec, const std::stop_token&)> sleepTick = sleep;
    LogSink log = {};
  };

  /// Throws `std::logic_error` for retries without a schedule.
  RetryingModelBackend(std::shared_ptr<ModelBackend> wrapped, Settings settings);

  /// The default `sleepTick`.
  static void sleep(double sec, const std::stop_token& stop);

 protected:
  ChatResponse run(DecoratedCall& call) override;

 private:
  /// False when the caller's wish to wait has ended.
  bool waited(double sec, const std::stop_token& stop) const;

  std::shared_ptr<ModelBackend> wrapped_;
  Settings settings_;
};

}  // namespace halvo
