// Signals: samples the desktop every 1.5 s into signals.sqlite under the data root.

#include <fmt/format.h>

#include "CaptureShared/DataRoot/AgentProcess.h"
#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Foundation/Environment.h"
#include "CaptureShared/Intention/CurrentTask.h"
#include "CaptureShared/Recording/Supervision/ReplacementTimer.h"
#include "Platform/Linux/LinuxDesktop.h"
#include "agents/Signals/SignalsSampler.h"

using namespace halvo;

int main() {
  AgentProcess process("Signals");
  const auto clock = Clock::system();
  const LogSink log = [toStream = standardLog(), clock](const std::string& line) {
    toStream(ISO8601::utcSeconds(clock.nowMs()) + " " + line);
  };
  const ReplacementTimer replacement({.onReplaced = [&] { process.requestStop(); }, .log = log});
  const auto root = []() -> SignalsSampler::Root {
    if (!DataPaths::isDataRootAvailable()) {
      DataPaths::invalidateConfigCache();  // it may be chosen before the next turn
      return {.whyNot = DataPaths::dataRootUnavailableReason()};
    }
    return {.database = DataPaths::signalsDB()};
  };
  LinuxDesktop desktop(LinuxDesktop::Options::from(processEnvironment(), clock.nowMs, log));
  SignalsSampler sampler({.probes = desktop,
                          .nowPlaying = desktop.nowPlaying(),
                          .clock = clock,
                          .root = root,
                          .declaredTask = [] { return CurrentTask::read(); },
                          .log = log});
  log(fmt::format("Signals samples every {} ms", SignalsSampler::periodMs));
  // Each sample is one transaction: ended anywhere, the file is whole.
  const int status = process.run([&](const std::stop_token& stop) { sampler.run(stop); });
  log("Signals ends");
  return status;
}
