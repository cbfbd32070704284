// Signals: samples the desktop every 1.5 s into signals.sqlite under the data root.

#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdlib>
#include <mutex>
#include <thread>

#include <sys/prctl.h>

#include <fmt/format.h>

#include "CaptureShared/DataRoot/AgentConfig.h"
#include "CaptureShared/DataRoot/AgentLogging.h"
#include "CaptureShared/DataRoot/AgentUmask.h"
#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Foundation/Environment.h"
#include "CaptureShared/Intention/CurrentTask.h"
#include "Platform/Linux/LinuxDesktop.h"
#include "agents/Signals/SignalsSampler.h"

using namespace halvo;

int main() {
  AgentUmask::apply();
  ::prctl(PR_SET_DUMPABLE, 0);  // a core file would hold window titles
  sigset_t ending;
  ::sigemptyset(&ending);
  ::sigaddset(&ending, SIGTERM);
  ::sigaddset(&ending, SIGINT);
  ::sigaddset(&ending, SIGHUP);
  ::pthread_sigmask(SIG_BLOCK, &ending, nullptr);  // before any thread, so that all leave them to this one
  std::signal(SIGPIPE, SIG_IGN);
  AgentLogging::bootstrap("AmbitCapture", "Signals");

  const auto clock = Clock::system();
  const LogSink log = [toStream = standardLog(), clock](const std::string& line) {
    toStream(ISO8601::utcSeconds(clock.nowMs()) + " " + line);
  };
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
  if (const auto config = AgentConfig::load(); config.isMalformed())
    log(fmt::format("{} is malformed ({}) — none of its settings is in force", DataPaths::configURL().string(), *config.parseError));
  log(fmt::format("Signals samples every {} ms", SignalsSampler::periodMs));

  std::mutex mutex;
  std::condition_variable changed;
  bool isDone = false;
  std::jthread loop([&](const std::stop_token& stop) {
    sampler.run(stop);
    const std::lock_guard hold(mutex);
    isDone = true;
    changed.notify_all();
  });

  int signal = 0;
  while (::sigwait(&ending, &signal) != 0) {
  }
  loop.request_stop();
  std::unique_lock hold(mutex);
  // A display that hangs in its greeting can't be hurried, and whoever ends us wants it done within a second. Each sample is one
  // transaction: ended anywhere, the file is whole.
  if (!changed.wait_for(hold, std::chrono::milliseconds(800), [&] { return isDone; })) std::_Exit(0);
  log("Signals ends");
  return 0;
}
