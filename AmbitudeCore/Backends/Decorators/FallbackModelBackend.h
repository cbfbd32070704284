#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "AmbitudeCore/Backends/Decorators/Breaker.h"
#include "AmbitudeCore/Backends/Decorators/DecoratedCall.h"
#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/Log.h"

namespace halvo {

/// A backend and a second one that answers where the first can't. Every answer says which of them gave it. Only a failure that may pass
/// moves a call: an error of our own making would fail there too, or hide.
class FallbackModelBackend : public DecoratingModelBackend {
 public:
  struct Settings {
    std::string primaryName = {}, fallbackName = {};  ///< as answers and the log show them
    double cooldownSec = 60;                          ///< how long an unreachable primary is left alone
    bool escalateTruncatedPrimary = false;            ///< a cut-off reply is asked for again at the fallback
    std::function<std::int64_t()> nowMs = Clock::system().nowMs;
    LogSink log = {};
  };

  FallbackModelBackend(std::shared_ptr<ModelBackend> primary, std::shared_ptr<ModelBackend> fallback, Settings settings);

 protected:
  ChatResponse run(DecoratedCall& call) override;

 private:
  ChatResponse fallBack(DecoratedCall& call, std::optional<FallbackCause> cause);
  /// A cut-off reply of the primary, or what the fallback made of its call.
  ChatResponse escalated(DecoratedCall& call, ChatResponse cutOff);
  /// Why the fallback is to answer a call that failed so; absent when it is not to.
  std::optional<FallbackCause> causeOf(const std::exception& error);

  std::shared_ptr<ModelBackend> primary_, fallback_;
  Settings settings_;
  Breaker breaker_;
};

}  // namespace halvo
