// LocalModel: proves the model's files, readies the socket, and becomes the inference server.

#include <sysexits.h>

#include "AmbitudeCore/Backends/LocalInferenceEndpoint.h"
#include "AmbitudeCore/Classifier/ClassifierModel.h"
#include "CaptureShared/DataRoot/AgentProcess.h"
#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Provisioning/LocalModelStore.h"
#include "Platform/Linux/LinuxMachine.h"
#include "agents/LocalModel/LocalModelStart.h"

using namespace halvo;

namespace {

LocalModelStart startFor(const Environment& environment, std::string baseURL) {
  const auto clock = Clock::system();
  const auto model = ClassifierModel::resolved(environment);
  return LocalModelStart(
      {.environment = environment,
       .model = model,
       .manifest = LocalModelStore::manifest(model),
       .modelsDirectory = LocalModelStore::modelsDirectory(environment),
       .statusFile = LlamaServerStatus::url(environment),
       .baseURL = std::move(baseURL),
       .physicalMemoryBytes = LinuxMachine().physicalMemoryBytes(),
       .nowMs = clock.nowMs,
       .log = [toStream = standardLog(), clock](const std::string& line) { toStream(ISO8601::utcSeconds(clock.nowMs()) + " " + line); }});
}

}  // namespace

int main() {
  std::optional<LocalModelStart> start;
  std::optional<LlamaServerLaunch> launch;
  {
    const AgentProcess process("LocalModel");
    const auto environment = processEnvironment();
    try {
      start = startFor(environment, LocalInferenceEndpoint::resolveOrThrow(environment));
    } catch (const LocalInferenceEndpoint::ResolutionError& error) {
      startFor(environment, {}).tell(LlamaServerStatus::State::failed, error.what());
      return EX_CONFIG;
    }
    const int status = process.run([&](const std::stop_token& stop) {
      try {
        launch = start->prepare(stop);
      } catch (const Cancelled&) {
      }
    });
    if (process.stop().stop_requested()) return status;
  }
  // The thread that takes the signals has ended: one that came meanwhile ends this process as soon as `exec` lets it.
  if (launch) start->exec(*launch);
  return EX_UNAVAILABLE;
}
