#pragma once

#include <stop_token>
#include <thread>

namespace halvo {

/// SIGTERM, SIGINT and SIGHUP as one stop token, and SIGPIPE ignored. Make it first in `main`, before any thread starts: the signals are
/// blocked there and taken by a thread of its own.
class TerminationSignals {
 public:
  TerminationSignals();
  ~TerminationSignals();
  TerminationSignals(const TerminationSignals&) = delete;
  TerminationSignals& operator=(const TerminationSignals&) = delete;

  std::stop_token token() const { return stop_.get_token(); }
  /// As if a signal had come. From any thread.
  void requestStop() { stop_.request_stop(); }

 private:
  std::stop_source stop_;
  std::jthread thread_;
};

}  // namespace halvo
