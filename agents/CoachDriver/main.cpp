// The coach's agent: gate, conversation, nothing else.
#include <csignal>
#include <stdexcept>

#include <sys/prctl.h>
#include <sys/resource.h>

#include "AmbitudeCore/Backends/LocalInferenceEndpoint.h"
#include "AmbitudeCore/Backends/LocalModelBackend.h"
#include "CaptureShared/DataRoot/AgentLogging.h"
#include "CaptureShared/DataRoot/AgentUmask.h"
#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/Foundation/TerminationSignals.h"
#include "CaptureShared/Net/HTTPTransportRouter.h"
#include "agents/CoachDriver/CoachDriverLoop.h"
#include "agents/CoachDriver/SingleInstance.h"

namespace {

using namespace halvo;

/// Waits until the data root is there; false when the program is to end first.
bool waitForDataRoot(const Clock& clock, const LogSink& log, const std::stop_token& stop) {
  for (bool told = false; !stop.stop_requested(); clock.wait(5, stop)) {
    DataPaths::invalidateConfigCache();
    try {
      if (DataPaths::ensureSubdirsExist()) return true;
      if (!told) log(DataPaths::dataRootUnavailableReason());
    } catch (const std::system_error& error) {
      if (!told) log(std::string("the data root can't be used: ") + error.what());
    }
    told = true;
  }
  return false;
}

}  // namespace

int main() {
  AgentUmask::apply();
  // What it holds in memory is the conversation: a crash must not leave it on the disk.
  const rlimit none{0, 0};
  ::setrlimit(RLIMIT_CORE, &none);
  ::prctl(PR_SET_DUMPABLE, 0);
  // Blocked before any thread starts (the log's rotation has one), so that an ending is always an orderly one.
  sigset_t endings;
  ::sigemptyset(&endings);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) ::sigaddset(&endings, signal);
  ::pthread_sigmask(SIG_BLOCK, &endings, nullptr);
  AgentLogging::bootstrap("AmbitCapture", "CoachDriver");
  const TerminationSignals signals;
  const auto log = standardLog();
  const auto clock = Clock::system();
  if (!waitForDataRoot(clock, log, signals.token())) return 0;

  const auto environment = processEnvironment();
  const auto root = DataPaths::dataRoot();
  std::optional<SingleInstance> instance;
  try {
    instance = SingleInstance::acquire(DataPaths::ioLayerDir(root) / "coach-driver.pid");
  } catch (const std::system_error& error) {
    log(std::string("layer3: no hold on the data root, so this one does not run: ") + error.what());
    return 1;
  }
  if (!instance) {
    log("layer3: another CoachDriver runs on this data root; this one ends");
    return 0;
  }
  const auto base = LocalInferenceEndpoint::resolve(environment);
  const auto transport = HTTPTransportRouter::standard();
  LocalModelBackend backend(
      {.endpoint = LocalModelConfig::chatEndpoint(base), .model = value(environment, "AMBITCHECK_MODEL").value_or("gemma4:12b-it-qat")},
      *transport, {.clock = clock, .log = log, .dumpDirectory = root, .environment = environment});
  log("layer3: the coach runs on the local model at " + base);
  CoachDriverLoop({.dataRoot = root,
                   .backend = &backend,
                   .coachPrimaryIsLocal = true,
                   .environment = environment,
                   .callHoldOverride = DataPaths::callHoldOverride(),
                   .clock = clock,
                   .calendar = Calendar::local(),
                   .log = log,
                   .intentionSinks = IntentionWriter::standardSinks("AmbitudeCoach"),
                   .isDataRootThere = DataPaths::isDataRootAvailable})
      .run(signals.token());
  log("layer3: the coach ends");
  return 0;
}
