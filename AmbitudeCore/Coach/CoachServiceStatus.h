#pragma once

#include <cstdint>
#include <exception>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "CaptureShared/Foundation/LockedValue.h"
#include "CaptureShared/Records/EventLogEvent.h"

namespace halvo {

/// Folds the failures of the coach's service into one `coach_service_problem` and, once it answers again, one `coach_service_restored`.
/// May be used from any thread.
class CoachServiceStatus {
 public:
  static constexpr std::string_view unreachable = "unreachable";  ///< the reason of a failure to reach the service
  static constexpr int standardRetryableThreshold = 5;  ///< in a row: fewer are a hiccup that the retries ride out

  struct Config {
    int retryableThreshold = standardRetryableThreshold;
    bool countsTransportFailures = true;  ///< false: the network between is not the service's to answer for
  };
  explicit CoachServiceStatus(Config config) : config_(config) {}

  /// Takes up what an earlier run of the program reported and never took back.
  void resume(std::span<const EventLogEvent> events);
  /// The problem's event when this failure makes it one. Counted are retryable answers of the service and, if configured, requests that
  /// never completed; any other failure neither counts nor ends the run.
  std::optional<EventLogEvent> observe(const std::exception& error, std::int64_t asOfMs);
  /// The event that takes a reported problem back. An answer of the fallback says nothing about the service.
  std::optional<EventLogEvent> observeSuccess(std::int64_t asOfMs, bool servedByFallback);

  /// What the person is told, by the newest of these events; absent when there is none.
  static std::optional<std::string> displayText(std::span<const EventLogEvent> events);
  /// The text for one of these events; absent for any other.
  static std::optional<std::string> displayText(const EventLogEvent& event);

 private:
  struct Run {
    std::optional<std::string> reported = {};  ///< the reason
    int consecutiveFailures = 0;
  };
  const Config config_;
  LockedValue<Run> run_;
};

}  // namespace halvo
