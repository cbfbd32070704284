#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <stop_token>

#include "AmbitudeCore/Backends/ModelBackend.h"
#include "AmbitudeCore/Folds/DoNotDisturbSupervisor.h"
#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Foundation/Log.h"

namespace halvo {

/// Ends the coach's own quiet windows in the log: at a break, when what was expected no longer holds, or when the time is up.
class DoNotDisturbKeeper {
 public:
  struct Surroundings {
    ModelBackend* localModel = nullptr;  ///< null: no pattern is checked, and a window holds until its timer
    Calendar calendar = Calendar::local();
    std::function<void(const EventLogEvent&)> append = {};
    LogSink log = {};
  };
  explicit DoNotDisturbKeeper(Surroundings surroundings) : surroundings_(std::move(surroundings)) {}

  struct Moment {
    std::span<const EventLogEvent> events = {};
    std::span<const ClassifierTick> ticks = {};
    std::int64_t asOfMs = 0;
  };
  /// One look. A failed check leaves the window as it is until the next one is due. Throws `Cancelled` alone.
  void look(const Moment& moment, const std::stop_token& stop);

 private:
  void end(const DoNotDisturbEndedEvent::End& end) const { surroundings_.append(DoNotDisturbEndedEvent::make(end)); }
  void checkPattern(const Moment& moment, const DoNotDisturbWindow& window, const std::stop_token& stop);

  Surroundings surroundings_;
  std::optional<std::int64_t> lastPatternCheckMs_;  ///< in memory alone: a restart may check once sooner
};

}  // namespace halvo
