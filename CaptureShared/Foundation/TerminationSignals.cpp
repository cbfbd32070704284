#include "CaptureShared/Foundation/TerminationSignals.h"

#include <csignal>

namespace halvo {

namespace {

sigset_t endings() {
  sigset_t set;
  ::sigemptyset(&set);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) ::sigaddset(&set, signal);
  return set;
}

}  // namespace

TerminationSignals::TerminationSignals() {
  std::signal(SIGPIPE, SIG_IGN);
  const auto set = endings();
  ::pthread_sigmask(SIG_BLOCK, &set, nullptr);
  thread_ = std::jthread([this](const std::stop_token& own) {
    const auto wanted = endings();
    for (int signal = 0; ::sigwait(&wanted, &signal) == 0 && !own.stop_requested();) stop_.request_stop();
  });
}

TerminationSignals::~TerminationSignals() {
  thread_.request_stop();
  // Wakes that thread alone, so that it sees the request.
  ::pthread_kill(thread_.native_handle(), SIGTERM);
}

}  // namespace halvo
