#include "agents/Supervisor/SupervisorLoop.h"

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

void SupervisorLoop::startWhatIsDue(std::int64_t steadyMs) {
  if (!signals_.isDue(steadyMs) && !capturer_.isDue(steadyMs)) return;
  const auto trouble = ports_.dataRootTrouble();
  say(rootTrouble_, trouble ? "recording nothing: " + *trouble : "");
  if (trouble) return;
  if (signals_.isDue(steadyMs)) signals_.start(steadyMs);
  if (!capturer_.isDue(steadyMs)) return;
  attempt("manifest.json could not be written", manifestTrouble_, ports_.captureRunStarts);
  fault_.noteStart(ports_.clock.nowMs());
  capturer_.start(steadyMs);
}

void SupervisorLoop::sweepIfDue(std::int64_t steadyMs) {
  if (steadyMs < sweepDueMs_) return;
  sweepDueMs_ = steadyMs + sweepPeriodMs;
  attempt("Retention: the sweep failed", sweepTrouble_, ports_.sweep);
}

void SupervisorLoop::turn() {
  const auto steadyMs = ports_.steadyMs();
  attempt("the screen's lock can't be told", lockTrouble_, [&] { noteScreenLock(); });
  signals_.noteExit(steadyMs);
  if (const auto exit = capturer_.noteExit(steadyMs)) fault_.noteExit(*exit, ports_.clock.nowMs());
  signals_.becomesHealthy(steadyMs);
  if (capturer_.becomesHealthy(steadyMs)) fault_.noteHealthy();
  startWhatIsDue(steadyMs);
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
