// Consolidate: one nightly pass over the logs, and out. The service manager starts it; `--now` is for a person.

#include <CLI/CLI.hpp>

#include "AmbitudeCore/Backends/Factory/ModelBackendFactory.h"
#include "AmbitudeCore/Backends/LocalInferenceEndpoint.h"
#include "AmbitudeCore/Memory/ConsolidateLog.h"
#include "CaptureShared/DataRoot/AgentProcess.h"
#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/Net/HTTPTransportRouter.h"
#include "Platform/Linux/LinuxPower.h"
#include "agents/Consolidate/ConsolidateJob.h"

using namespace halvo;

int main(int argc, char** argv) {
  const AgentProcess process("Consolidate");
  ConsolidateOptions options;
  CLI::App app("Digests what the logs hold and makes tomorrow's memory of it.", "Consolidate");
  app.add_flag("--now", options.now, "Run whatever the schedule says; power and warmth are minded all the same");
  app.add_flag("--sequential", options.sequential, "Fold what is new into the sequential memory instead");
  app.add_option("--backfill", options.backfill, "Fold at most so many digests into the sequential memory, one model call each");
  app.add_flag("--dry-run", options.dryRun, "Say what would be done, and do nothing");
  CLI11_PARSE(app, argc, argv);

  const auto clock = Clock::system();
  const LogSink log = [toStream = standardLog(), clock](const std::string& text) { toStream(ConsolidateLog::line(text, clock.nowMs())); };
  if (!DataPaths::isDataRootAvailable()) {
    log(std::string(ConsolidateLog::failurePrefix) + DataPaths::dataRootUnavailableReason());
    return 1;
  }
  const auto environment = processEnvironment();
  const auto transport = HTTPTransportRouter::standard(environment);
  MessageBus bus({.isSystemBus = true, .log = log});
  LinuxPower power(bus, {.nowMs = clock.nowMs});
  // The power service's first answers; without the service the kernel's files tell as much.
  bus.settle(0.5);
  ConsolidateJob job(
      {.dataRoot = DataPaths::dataRoot(),
       .makeBackend =
           [&](const std::function<bool()>& shouldKeepWaiting) {
             return ModelBackendFactory::forConsolidation(
                 {.transport = transport.get(),
                  .localBaseURL = LocalInferenceEndpoint::resolve(environment),
                  .surroundings = {.clock = clock, .log = log, .dumpDirectory = DataPaths::dataRoot(), .environment = environment}},
                 shouldKeepWaiting);
           },
       .power = &power,
       .environment = environment,
       .clock = clock,
       .calendar = Calendar::local(),
       .log = log},
      options);
  int status = 0;
  // Each file appears whole or not at all: the job may be ended anywhere.
  process.run([&](const std::stop_token& stop) { status = job.run(stop); });
  return status;
}
