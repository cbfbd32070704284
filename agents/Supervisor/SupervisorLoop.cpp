#include "agents/Supervisor/SupervisorLoop.h"

#include <utility>

#include <fmt/format.h>

namespace halvo {

SupervisorLoop::SupervisorLoop(Ports ports)
    : ports_(std::move(ports)),
      fault_(ports_.faultFile, ports_.log),
      signals_({.program = ports_.signals, .gate = ports_.gate, .log = ports_.log}),
      capturer_({.program = ports_.capturer, .gate = ports_.gate, .log = ports_.log}),
      sweepDueMs_(ports_.steadyMs() + firstSweepMs) {}

void SupervisorLoop::say(std::string& last, const std::string& line) {
  if (line != last && !line.empty() && ports_.log) ports_.log(line);
  last = line;
}

void SupervisorLoop::attempt(const char* what, std::string& last, const std::function<void()>& step) {
  try {
    step();
    last.clear();
  } catch (const std::exception& error) {
    say(last, fmt::format("{}: {}", what, error.what()));
  }
}

void SupervisorLoop::noteScreenLock() {
  const bool isLocked = ports_.isScreenLocked().value_or(false);
  for (auto* child : {&signals_, &capturer_}) isLocked ? child->gate().noteScreenLocked() : child->gate().noteScreenUnlocked();
}

void SupervisorLoop::obey(const RecordingControls& wanted, std::int64_t nowMs) {
  const bool wasPaused = std::exchange(isPaused_, wanted.isPaused(nowMs));
  if (isPaused_ && (!wasPaused || wanted != controls_) && ports_.log) ports_.log("recording is " + wanted.words(nowMs, ports_.calendar));
  if (wasPaused && !isPaused_ && ports_.log) ports_.log("recording goes on");
  controls_ = wanted;
  if (capturer_.pid() == 0) return;
  if (isPaused_ || wanted.quality != capturersQuality_) capturer_.retire();
}

void SupervisorLoop::startWhatIsDue(std::int64_t steadyMs, std::int64_t nowMs) {
  const bool isCapturerDue = !isPaused_ && capturer_.isDue(steadyMs);
  if (!signals_.isDue(steadyMs) && !isCapturerDue) return;
  const auto trouble = ports_.dataRootTrouble();
  say(rootTrouble_, trouble ? "recording nothing: " + *trouble : "");
  if (trouble) return;
  if (signals_.isDue(steadyMs)) signals_.start(steadyMs);
  if (!isCapturerDue) return;
  attempt("manifest.json could not be written", manifestTrouble_, [&] { ports_.captureRunStarts(controls_); });
  capturersQuality_ = controls_.quality;
  fault_.noteStart(nowMs);
  capturer_.start(steadyMs);
}

void SupervisorLoop::sweepIfDue(std::int64_t steadyMs) {
  if (steadyMs < sweepDueMs_) return;
  sweepDueMs_ = steadyMs + sweepPeriodMs;
  attempt("Retention: the sweep failed", sweepTrouble_, ports_.sweep);
}

void SupervisorLoop::turn() {
  const auto steadyMs = ports_.steadyMs(), nowMs = ports_.clock.nowMs();
  attempt("the screen's lock can't be told", lockTrouble_, [&] { noteScreenLock(); });
  obey(ports_.controls(), nowMs);
  signals_.noteExit(steadyMs);
  if (const auto exit = capturer_.noteExit(steadyMs)) fault_.noteExit(*exit, nowMs);
  signals_.becomesHealthy(steadyMs);
  if (capturer_.becomesHealthy(steadyMs)) fault_.noteHealthy(nowMs);
  startWhatIsDue(steadyMs, nowMs);
  sweepIfDue(steadyMs);
}

void SupervisorLoop::run(const std::stop_token& stop) {
  while (!stop.stop_requested()) {
    turn();
    ports_.clock.wait(turnSec, stop);
  }
  signals_.askToEnd();
  capturer_.askToEnd();
  signals_.waitForEnd();
  capturer_.waitForEnd();
}

}  // namespace halvo
