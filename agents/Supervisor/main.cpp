// Supervisor: keeps Signals and Capturer running, tells why nothing is recorded, and has old recordings deleted.

#include <filesystem>
#include <functional>
#include <optional>
#include <system_error>

#include <unistd.h>

#include <fmt/format.h>

#include "CaptureShared/DataRoot/AgentProcess.h"
#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/DataRoot/Manifest.h"
#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Foundation/SingleInstance.h"
#include "CaptureShared/Recording/Retention/RetentionRunner.h"
#include "CaptureShared/Recording/Supervision/CaptureFaultStore.h"
#include "CaptureShared/Recording/Supervision/CaptureProfile.h"
#include "CaptureShared/Recording/Supervision/RecordingControlsWatch.h"
#include "CaptureShared/Recording/Supervision/ReplacementTimer.h"
#include "Platform/Linux/LinuxMachine.h"
#include "Platform/Linux/SessionWatch.h"
#include "agents/Supervisor/SupervisorLoop.h"

using namespace halvo;

namespace {

/// Whether the session is locked, from its two buses.
class LockProbe {
 public:
  LockProbe(const Environment& environment, const LogSink& log)
      : sessionBus_({.log = log}),
        systemBus_({.isSystemBus = true, .log = log}),
        savers_(sessionBus_),
        login_(systemBus_, {.sessionID = value(environment, "XDG_SESSION_ID"), .uid = ::getuid()}) {}

  std::optional<bool> read() {
    sessionBus_.pump();
    systemBus_.pump();
    const auto locked = login_.isLocked(), active = savers_.isActive();
    if (!locked && !active) return std::nullopt;
    return locked == true || active == true;
  }

 private:
  MessageBus sessionBus_, systemBus_;
  ScreenSaverWatch savers_;
  LoginWatch login_;
};

std::optional<std::string> dataRootTrouble() {
  try {
    const bool isReady = DataPaths::isDataRootAvailable() && std::filesystem::is_directory(DataPaths::videoDir());
    if (isReady || DataPaths::ensureSubdirsExist()) return std::nullopt;
    DataPaths::invalidateConfigCache();  // it may be chosen before the next turn
    return DataPaths::dataRootUnavailableReason();
  } catch (const std::system_error& error) {
    return error.what();
  }
}

/// This process's hold on the data root, wherever that is by now: two would record everything twice.
class RootHold {
 public:
  explicit RootHold(std::function<void()> onOther) : onOther_(std::move(onOther)) {}

  /// Why nothing can be recorded there; absent: the root is there and ours. Calls `onOther` when another Supervisor has it.
  std::optional<std::string> trouble() {
    if (auto why = dataRootTrouble()) return why;
    const auto file = DataPaths::dataRoot() / "supervisor.pid";
    if (hold_ && hold_->isOf(file)) return std::nullopt;
    try {
      hold_.reset();
      hold_ = SingleInstance::acquire(file);
    } catch (const std::system_error& error) {
      return std::string("no hold on the data root: ") + error.what();
    }
    if (hold_) return std::nullopt;
    onOther_();
    return "another Supervisor records to this data root; this one ends";
  }

 private:
  std::function<void()> onOther_;
  std::optional<SingleInstance> hold_;
};

void sweep(const Clock& clock, const LogSink& log) {
  const LinuxMachine machine;
  const auto calendar = Calendar::local();
  const auto environment = RetentionRunner::Environment::real(machine, calendar);
  const auto result =
      RetentionRunner::run({.apply = true, .nowMs = clock.nowMs(), .calendar = calendar, .environment = environment, .log = log});
  if (result.filesConsidered() == 0) return;
  log(fmt::format("Retention: {} file(s) deleted, {} bytes freed, {} failed", result.filesDeleted(), result.bytesFreed(),
                  result.failures().size()));
}

}  // namespace

int main() {
  AgentProcess process("Supervisor");
  const auto clock = Clock::system();
  const auto environment = processEnvironment();
  const LogSink log = [toStream = standardLog(), clock](const std::string& line) {
    toStream(ISO8601::utcSeconds(clock.nowMs()) + " " + line);
  };
  const auto programs = ExecutablePath::siblingDirectory(ExecutablePath::resolveSelf());
  const ReplacementTimer replacement({.onReplaced = [&] { process.requestStop(); }, .log = log});
  LockProbe lock(environment, log);
  RecordingControlsWatch controls;
  RootHold root([&] { process.requestStop(); });
  log("Supervisor keeps Signals and Capturer running");
  // Longer than the children take.
  constexpr double maxEndingSec = 2;
  const int status = process.run(
      [&](const std::stop_token& stop) {
        SupervisorLoop({.signals = programs / "Signals",
                        .capturer = programs / "Capturer",
                        .faultFile = CaptureFaultStore::path(environment),
                        .clock = clock,
                        .dataRootTrouble = [&] { return root.trouble(); },
                        .captureRunStarts = [](const RecordingControls& wanted) {
                          Manifest(CaptureProfile::fps, CaptureProfile::keyframeIntervalSec, wanted.widthTarget()).write();
                        },
                        .controls = [&] { return controls.look(DataPaths::dataRoot()); },
                        .calendar = Calendar::local(),
                        .isScreenLocked = [&] { return lock.read(); },
                        .sweep = [&] { sweep(clock, log); },
                        .log = log})
            .run(stop);
      },
      maxEndingSec);
  log("Supervisor ends");
  return status;
}
