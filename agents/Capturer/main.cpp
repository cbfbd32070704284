// Capturer: records each display at two frames a second into sealed hour files under the data root.

#include "CaptureShared/DataRoot/AgentConfig.h"
#include "CaptureShared/DataRoot/AgentProcess.h"
#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/Foundation/FFmpegResolver.h"
#include "CaptureShared/Recording/Supervision/CaptureFaultStore.h"
#include "CaptureShared/Recording/Supervision/CapturerExit.h"
#include "CaptureShared/Recording/Supervision/RecordingControlsWatch.h"
#include "CaptureShared/Recording/Supervision/ReplacementTimer.h"
#include "CaptureShared/Recording/VideoArchiveKeyStore.h"
#include "Platform/Linux/LinuxArchiveKeyBackend.h"
#include "Platform/Linux/LinuxDesktop.h"
#include "Platform/Linux/XScreenCapture.h"
#include "agents/Capturer/CapturerLoop.h"

using namespace halvo;

namespace {

/// Tells the person that nothing is recorded because the windows can't be listed, or that this is over.
void tellFilterFault(bool isUnreliable, const std::filesystem::path& file, std::int64_t nowMs, const LogSink& log) {
  const auto written = CaptureFaultStore::read(file);
  const bool isOurs = written && written->kind == CaptureFault::Kind::denylistFilterUnreliable;
  constexpr std::int64_t againMs = 60'000;
  if (isUnreliable && (!isOurs || nowMs - written->updatedAtMs >= againMs))
    CaptureFaultStore::recordDirectly({.kind = CaptureFault::Kind::denylistFilterUnreliable,
                                       .detail = "the desktop doesn't tell its windows",
                                       .nowMs = nowMs,
                                       .file = file,
                                       .log = log});
  if (isUnreliable || !isOurs) return;
  try {
    CaptureFaultStore::clear(file);
  } catch (const std::system_error& error) {
    log(std::string("the capture fault could not be cleared: ") + error.what());
  }
}

std::int32_t record(const std::stop_token& stop, const Clock& clock, const LogSink& log) {
  const auto environment = processEnvironment();
  if (!DataPaths::ensureSubdirsExist()) throw std::runtime_error(DataPaths::dataRootUnavailableReason());
  const auto root = DataPaths::dataRoot();
  RecordingControlsWatch controls;
  const auto wanted = controls.look(root);
  if (wanted.isPaused(clock.nowMs())) {
    log("Capturer records nothing: recording is " + wanted.words(clock.nowMs(), Calendar::local()));
    return 0;
  }
  XScreenCapture screen(value(environment, "DISPLAY"));
  screen.displays();  // throws when there is none, or it refuses us
  const auto ffmpeg = FFmpegResolver::resolve(environment);
  auto secrets = LinuxArchiveKeyBackend::forAccount(environment);
  const auto found = VideoArchiveKeyStore(secrets).loadCurrentWithGeneration();
  LinuxDesktop desktop(LinuxDesktop::Options::from(environment, clock.nowMs, log));
  const auto faultFile = CaptureFaultStore::path(environment);
  log("Capturer records at 2 frames a second");
  return CapturerLoop({.probes = desktop,
                       .screen = screen,
                       .clock = clock,
                       .calendar = Calendar::local(),
                       .root = root,
                       .key = found.key,
                       .generation = found.generation,
                       .ffmpeg = ffmpeg,
                       .widthTarget = wanted.widthTarget(),
                       .isPaused = [&](std::int64_t nowMs) { return controls.look(root).isPaused(nowMs); },
                       .denylist = Denylist::fromEnvironment(environment),
                       .filterFault = [&](bool isUnreliable) { tellFilterFault(isUnreliable, faultFile, clock.nowMs(), log); },
                       .log = log})
      .run(stop);
}

}  // namespace

int main() {
  AgentProcess process("Capturer");
  const auto clock = Clock::system();
  const LogSink log = [toStream = standardLog(), clock](const std::string& line) {
    toStream(ISO8601::utcSeconds(clock.nowMs()) + " " + line);
  };
  const ReplacementTimer replacement({.onReplaced = [&] { process.requestStop(); }, .log = log});
  std::int32_t code = 0;
  // The encoders are bound to the loop's thread. Every file is whole at any moment, so a loop that hangs may end with the process.
  const int status = process.run([&](const std::stop_token& stop) {
    try {
      code = record(stop, clock, log);
    } catch (const std::exception& error) {
      code = CapturerExit::startupCode(error).value_or(1);
      log(std::string("Capturer can't record: ") + error.what());
    }
  });
  log("Capturer ends");
  return status != 0 ? status : code;
}
