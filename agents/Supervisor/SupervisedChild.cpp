#include "agents/Supervisor/SupervisedChild.h"

#include <csignal>
#include <system_error>
#include <utility>

#include <poll.h>

#include <fmt/format.h>

#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/Spawn.h"

namespace halvo {

SupervisedChild::~SupervisedChild() {
  askToEnd();
  waitForEnd();
}

void SupervisedChild::say(const std::string& line) {
  if (line != told_ && options_.log) options_.log(line);
  told_ = line;
}

bool SupervisedChild::start(std::int64_t steadyMs) {
  if (pid_ != 0) return true;
  try {
    // Not SIGKILL: should this process be killed, the recorder still closes its file.
    pid_ = Spawn::run(options_.program.string(), {}, std::nullopt, {}, SIGTERM);
  } catch (const std::system_error& error) {
    dueMs_ = steadyMs + static_cast<std::int64_t>(gate_.noteLaunchFailure().delay * 1000);
    say(fmt::format("{} could not be started: {}", name(), error.what()));
    return false;
  }
  startedMs_ = steadyMs;
  isHealthy_ = false;
  return true;
}

std::optional<SupervisedChild::Exit> SupervisedChild::noteExit(std::int64_t steadyMs) {
  if (pid_ != 0 && isRetired_ && steadyNowMs() >= endByMs_) ::kill(-pid_, SIGKILL);
  const auto code = pid_ == 0 ? std::nullopt : Spawn::reap(pid_);
  if (!code) return std::nullopt;
  pid_ = 0;
  if (std::exchange(isRetired_, false)) {
    dueMs_ = steadyMs;
    return std::nullopt;
  }
  Exit exit{.code = *code, .ranForSec = static_cast<double>(steadyMs - startedMs_) / 1000};
  exit.decision = gate_.noteChildExit(*code, exit.ranForSec);
  dueMs_ = steadyMs + static_cast<std::int64_t>(exit.decision.delay * 1000);
  say(fmt::format("{} ended with {}; started again in {:g} s", name(), *code, exit.decision.delay));
  return exit;
}

bool SupervisedChild::becomesHealthy(std::int64_t steadyMs) {
  if (pid_ == 0 || isHealthy_ || static_cast<double>(steadyMs - startedMs_) / 1000 < gate_.config().healthyUptime) return false;
  isHealthy_ = true;
  gate_.noteChildHealthy();
  if (!told_.empty() && options_.log) options_.log(fmt::format("{} runs", name()));
  told_.clear();
  return true;
}

void SupervisedChild::retire() {
  if (pid_ == 0 || std::exchange(isRetired_, true)) return;
  askToEnd();
}

void SupervisedChild::askToEnd() {
  if (pid_ == 0) return;
  endByMs_ = steadyNowMs() + static_cast<std::int64_t>(endingSec * 1000);
  ::kill(pid_, SIGTERM);
}

void SupervisedChild::waitForEnd() {
  while (pid_ != 0 && !Spawn::reap(pid_)) {
    // The whole group: what it started would otherwise stay.
    if (steadyNowMs() >= endByMs_) ::kill(-pid_, SIGKILL);
    ::poll(nullptr, 0, 5);
  }
  pid_ = 0;
}

}  // namespace halvo
