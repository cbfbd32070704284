// The coach's agent: gate, conversation, nothing else.

#include <system_error>

#include "AmbitudeCore/Backends/LocalInferenceEndpoint.h"
#include "AmbitudeCore/Backends/LocalModelBackend.h"
#include "AmbitudeCore/Classifier/ClassifierModel.h"
#include "CaptureShared/DataRoot/AgentProcess.h"
#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/Net/HTTPTransportRouter.h"
#include "agents/CoachDriver/CoachDriverLoop.h"
#include "agents/CoachDriver/SingleInstance.h"

namespace {

using namespace halvo;

/// Waits until the data root is there and has room for the hold on it; absent when another driver has that, or the program is to end first.
std::optional<SingleInstance> holdDataRoot(const Clock& clock, const LogSink& log, const std::stop_token& stop) {
  std::string told;
  const auto say = [&](const std::string& line) {
    if (line != told) log(told = line);
  };
  for (; !stop.stop_requested(); clock.wait(5, stop)) {
    DataPaths::invalidateConfigCache();
    try {
      if (!DataPaths::ensureSubdirsExist()) {
        say(DataPaths::dataRootUnavailableReason());
        continue;
      }
      if (auto hold = SingleInstance::acquire(DataPaths::ioLayerDir() / "coach-driver.pid")) return hold;
      log("layer3: another CoachDriver runs on this data root; this one ends");
      return std::nullopt;
    } catch (const std::system_error& error) {
      say(std::string("layer3: no hold on the data root yet: ") + error.what());
    }
  }
  return std::nullopt;
}

}  // namespace

int main() {
  const AgentProcess process("CoachDriver");
  const auto log = standardLog();
  const auto clock = Clock::system();
  const auto environment = processEnvironment();
  const auto base = LocalInferenceEndpoint::resolve(environment);
  const auto transport = HTTPTransportRouter::standard();
  // Every row is one write: ended anywhere, the files are whole.
  return process.run([&](const std::stop_token& stop) {
    const auto hold = holdDataRoot(clock, log, stop);
    if (!hold) return;
    const auto root = DataPaths::dataRoot();
    LocalModelBackend backend({.endpoint = LocalModelConfig::chatEndpoint(base), .model = ClassifierModel::resolved(environment)}, *transport,
                              {.clock = clock, .log = log, .dumpDirectory = root, .environment = environment});
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
        .run(stop);
    log("layer3: the coach ends");
  });
}
