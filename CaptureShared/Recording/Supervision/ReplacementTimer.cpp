#include "CaptureShared/Recording/Supervision/ReplacementTimer.h"

#include <fmt/format.h>

#include "CaptureShared/Recording/Supervision/SelfReplacementWatch.h"

namespace halvo {

namespace {

void watch(const ReplacementTimer::Options& options, SelfReplacementWatch watch, const std::stop_token& stop) {
  const auto launchedMs = options.steadyMs();
  for (options.wait(ReplacementTimer::periodSec, stop); !stop.stop_requested(); options.wait(ReplacementTimer::periodSec, stop)) {
    const auto elapsedSec = static_cast<double>(options.steadyMs() - launchedMs) / 1000;
    const auto decision = watch.check(ExecutableStamp::of(options.executable), elapsedSec);
    const auto* replaced = std::get_if<SelfReplacementWatch::ExitForNewBinary>(&decision);
    if (!replaced) continue;
    if (options.log)
      options.log(fmt::format("{} was replaced ({} → {}) — ending, so that the new one is started", options.executable.filename().string(),
                              replaced->from.description(), replaced->to.description()));
    options.onReplaced();
    return;
  }
}

}  // namespace

ReplacementTimer::ReplacementTimer(Options options) {
  SelfReplacementWatch atLaunch{.launchStamp = ExecutableStamp::of(options.executable)};
  thread_ = std::jthread([options = std::move(options), atLaunch](const std::stop_token& stop) { watch(options, atLaunch, stop); });
}

}  // namespace halvo
