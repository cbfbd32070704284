// ClassifierVerify: judges this moment against the declared intention when that is due, and appends the row to checker-log.jsonl.

#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdlib>
#include <mutex>
#include <thread>

#include <fmt/format.h>
#include <sys/prctl.h>
#include <sys/resource.h>

#include "AmbitudeCore/Backends/LocalInferenceEndpoint.h"
#include "CaptureShared/DataRoot/AgentConfig.h"
#include "CaptureShared/DataRoot/AgentLogging.h"
#include "CaptureShared/DataRoot/AgentUmask.h"
#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/Intention/CurrentTask.h"
#include "CaptureShared/Net/HTTPTransportRouter.h"
#include "Platform/Linux/LinuxDesktop.h"
#include "Platform/Linux/TesseractRecognizer.h"
#include "Platform/Linux/XScreenCapture.h"
#include "agents/ClassifierVerify/ClassifierLoop.h"

namespace {

/// What this process holds in memory (pictures of the screen) must not end up in a core file or be read by a debugger of the account.
void keepMemoryPrivate() {
  const rlimit none{0, 0};
  setrlimit(RLIMIT_CORE, &none);
  prctl(PR_SET_DUMPABLE, 0);
}

sigset_t endingSignals() {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) sigaddset(&set, signal);
  return set;
}

}  // namespace

int main() {
  using namespace halvo;
  AgentUmask::apply();
  keepMemoryPrivate();
  std::signal(SIGPIPE, SIG_IGN);
  // Blocked before any thread starts, so that only the one that waits for them ever sees them.
  const auto ending = endingSignals();
  pthread_sigmask(SIG_BLOCK, &ending, nullptr);

  AgentLogging::bootstrap("AmbitCapture", "ClassifierVerify");
  const auto environment = processEnvironment();
  const auto clock = Clock::system();
  const LogSink log = [toStream = standardLog(), clock](const std::string& line) {
    toStream(ISO8601::utcSeconds(clock.nowMs()) + " " + line);
  };
  if (const auto config = AgentConfig::load(); config.isMalformed())
    log(fmt::format("{} is malformed ({}) — none of its settings is in force", DataPaths::configURL().string(), *config.parseError));
  const auto root = []() -> std::optional<std::filesystem::path> {
    if (DataPaths::isDataRootAvailable()) return DataPaths::dataRoot();
    DataPaths::invalidateConfigCache();  // it may be chosen before the next pass
    return std::nullopt;
  };
  LinuxDesktop desktop(LinuxDesktop::Options::from(environment, clock.nowMs, log));
  XScreenCapture screen(value(environment, "DISPLAY"));
  const auto transport = HTTPTransportRouter::standard();

  ClassifierLoop loop({.clock = clock,
                       .calendar = Calendar::local(),
                       .environment = environment,
                       .probes = desktop,
                       .screen = screen,
                       .recognizer = std::make_shared<TesseractRecognizer>(),
                       .power = desktop.powerSource(),
                       .transport = *transport,
                       .inferenceBaseURL = LocalInferenceEndpoint::resolve(environment),
                       .dataRoot = root,
                       .dataRootUnavailableReason = DataPaths::dataRootUnavailableReason,
                       .taskFileBody = CurrentTask::read,
                       .log = log});

  std::mutex mutex;
  std::condition_variable changed;
  bool isDone = false;
  std::jthread running([&](const std::stop_token& stop) {
    loop.run(stop);
    const std::lock_guard hold(mutex);
    isDone = true;
    changed.notify_all();
  });

  int signal = 0;
  while (sigwait(&ending, &signal) != 0) {
  }
  running.request_stop();
  std::unique_lock hold(mutex);
  // A display that hangs can't be hurried, and whoever ends us wants it done within a second. A row is one write and a state file one
  // rename: ended anywhere, the files are whole.
  if (!changed.wait_for(hold, std::chrono::milliseconds(800), [&] { return isDone; })) std::_Exit(0);
  return 0;
}
