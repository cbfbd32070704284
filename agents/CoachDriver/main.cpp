// The coach's agent: gate, conversation, nothing else.

#include <cstdio>
#include <system_error>

#include <sysexits.h>

#include "AmbitudeCore/Backends/Factory/CoachBackend.h"
#include "AmbitudeCore/Backends/LocalInferenceEndpoint.h"
#include "AmbitudeCore/Backends/Routing/CachedProviderPricing.h"
#include "AmbitudeCore/Backends/TurnUsageRecordLog.h"
#include "CaptureShared/DataRoot/AgentConfig.h"
#include "CaptureShared/DataRoot/AgentProcess.h"
#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/Foundation/SingleInstance.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Net/HTTPTransportRouter.h"
#include "CaptureShared/Recording/Supervision/ReplacementTimer.h"
#include "agents/CoachDriver/CoachDriverLoop.h"

namespace {

using namespace halvo;

/// Why the driver must not start with this environment: no choice of a model that the user did not make.
std::optional<std::string> refusalToStart(const Environment& environment) {
  if (const auto reason = ModelBackendFactory::fatalReason(environment)) return reason;
  const auto missing = AgentConfig::missingKeys(ModelBackendFactory::coachDriverRequiredConfigKeys(environment), {}, environment);
  if (missing.empty()) return std::nullopt;
  return "CoachDriver can't start: " + Text::join(missing, ", ") + " is not set";
}

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
  AgentProcess process("CoachDriver");
  const auto log = standardLog();
  const auto clock = Clock::system();
  const auto environment = processEnvironment();
  if (const auto refusal = refusalToStart(environment)) {
    std::fprintf(stderr, "%s\n", refusal->c_str());
    return EX_CONFIG;
  }
  const ReplacementTimer replacement({.onReplaced = [&] { process.requestStop(); }, .log = log});
  const auto base = LocalInferenceEndpoint::resolve(environment);
  const auto transport = HTTPTransportRouter::standard(environment);
  // Every row is one write: ended anywhere, the files are whole.
  return process.run([&](const std::stop_token& stop) {
    const auto hold = holdDataRoot(clock, log, stop);
    if (!hold) return;
    const auto root = DataPaths::dataRoot();
    const auto backend = ModelBackendFactory::refreshedFromEnvironment(
        {.transport = transport.get(),
         .localBaseURL = base,
         .selector = std::make_shared<StickyProviderSelector>(clock.nowMs, log),
         .surroundings = {.clock = clock, .log = log, .dumpDirectory = root, .environment = environment}},
        {.pricingCache = CachedProviderPricing::defaultURL(root), .usageLog = TurnUsageRecordLog::defaultURL(root)});
    log("layer3: the coach runs on " + ModelBackendFactory::describeSelection(environment));
    CoachDriverLoop({.dataRoot = root,
                     .backend = backend.get(),
                     .coachPrimaryIsLocal = ModelBackendFactory::coachPrimaryIsLocal(environment),
                     .environment = environment,
                     .callHoldOverride = DataPaths::callHoldOverride(),
                     .clock = clock,
                     .calendar = Calendar::local(),
                     .log = log,
                     .intentionSinks = IntentionWriter::standardSinks("AmbitudeCoach"),
                     .isDataRootThere = DataPaths::isDataRootAvailable,
                     .signOfLife = [&] { hold->renew(); }})
        .run(stop);
    log("layer3: the coach ends");
  });
}
