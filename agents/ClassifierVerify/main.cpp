// ClassifierVerify: judges this moment against the declared intention when that is due, and appends the row to checker-log.jsonl.

#include "AmbitudeCore/Backends/LocalInferenceEndpoint.h"
#include "CaptureShared/DataRoot/AgentProcess.h"
#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/Intention/CurrentTask.h"
#include "CaptureShared/Net/HTTPTransportRouter.h"
#include "CaptureShared/Recording/Supervision/ReplacementTimer.h"
#include "Platform/Linux/LinuxDesktop.h"
#include "Platform/Linux/TesseractRecognizer.h"
#include "Platform/Linux/XScreenCapture.h"
#include "agents/ClassifierVerify/ClassifierLoop.h"

using namespace halvo;

int main() {
  AgentProcess process("ClassifierVerify");
  const auto environment = processEnvironment();
  const auto clock = Clock::system();
  const LogSink log = [toStream = standardLog(), clock](const std::string& line) {
    toStream(ISO8601::utcSeconds(clock.nowMs()) + " " + line);
  };
  const ReplacementTimer replacement({.onReplaced = [&] { process.requestStop(); }, .log = log});
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
                       .integritySubject =
                           [&](std::string model) { return ModelIntegrityCheck::Subject::of(std::move(model), environment); },
                       .dataRoot = root,
                       .dataRootUnavailableReason = DataPaths::dataRootUnavailableReason,
                       .taskFileBody = CurrentTask::read,
                       .log = log});
  // A row is one write and a state file one rename: ended anywhere, the files are whole.
  return process.run([&](const std::stop_token& stop) { loop.run(stop); });
}
