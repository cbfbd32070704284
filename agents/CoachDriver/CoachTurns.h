#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <span>
#include <stop_token>
#include <string>
#include <vector>

#include "AmbitudeCore/Backends/ModelBackend.h"
#include "AmbitudeCore/Coach/Layer3Prompt.h"
#include "AmbitudeCore/Coach/TurnFailureBackoff.h"
#include "AmbitudeCore/Folds/CoachPreferences.h"
#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/Environment.h"
#include "CaptureShared/Foundation/Log.h"
#include "CaptureShared/Intention/IntentionWriter.h"
#include "CaptureShared/Records/CoachCorrection.h"
#include "CaptureShared/Records/EventLogEvent.h"
#include "CaptureShared/Records/StandingMemory.h"

namespace halvo {

/// What the driver stands in: where it reads and writes, what it calls, whose clock it keeps. What it points at outlives it.
struct CoachSurroundings {
  std::filesystem::path dataRoot = {};
  ModelBackend* backend = nullptr;
  bool coachPrimaryIsLocal = true;
  Environment environment = {};
  std::filesystem::path callHoldOverride = {};
  Clock clock = Clock::system();
  Calendar calendar = Calendar::local();
  LogSink log = {};
  IntentionWriter::Sinks intentionSinks = {};  ///< for the two copies of a declaration that the coach recorded
  std::function<bool()> isDataRootThere = [] {
    return true;
  };  ///< false: a volume is gone, and its empty mount point is not to be written to
  std::function<void()> signOfLife = [] {};  ///< at each wake
};

/// Runs one turn of the coach and writes what came of it.
class CoachTurns {
 public:
  explicit CoachTurns(const CoachSurroundings& surroundings) : surroundings_(surroundings) {}

  struct Turn {
    std::span<const EventLogEvent> events = {};
    std::int64_t floorMs = 0;
    std::int64_t asOfMs = 0;
    std::optional<std::string> checkinSummary = {};  ///< absent: a reply to the person
    std::optional<std::int64_t> identity = {};       ///< the turn's cause, for the back-off
    CoachPreferences preferences = {};
    std::vector<CoachCorrection> corrections = {};   ///< in force
    std::optional<StandingMemory> memory = {};       ///< what was learned of earlier days
    std::vector<EventLogEvent> before = {};          ///< appended in front of the turn's own events when it delivers
  };
  /// Whether words reached the person. Failures become a log line and events. Throws `Cancelled` alone, and then nothing was written.
  bool run(const Turn& turn, const std::stop_token& stop);

  /// False while the cause's last failure is too fresh.
  bool mayRun(const std::optional<std::int64_t>& identity, std::int64_t asOfMs) const {
    return !backoff_.isBlocked(identity, asOfMs).blocked;
  }

  /// Notes what a call used, in the log and in `turn-usage.jsonl`.
  void recordUsage(const ChatResponse& response, const char* layer, std::int64_t asOfMs) const;
  /// Appends events in order; a failure is logged and ends the list.
  bool append(const std::vector<EventLogEvent>& events) const;

 private:
  /// Puts the cause off, tells the log, and writes `coach_turn_failed` behind the marker, if there is one.
  void fail(const Turn& turn, const std::string& reason, const std::optional<std::string>& userReason,
            const std::optional<EventLogEvent>& marker = {});
  void putOff(const Turn& turn, const std::string& reason);
  /// Writes the corrections that a turn recorded to their own file and answers their times there. When that fails the turn goes on without
  /// them.
  std::vector<std::int64_t> keepCorrections(const Turn& turn, std::vector<EventLogEvent>& events) const;
  void forgetCorrections(const std::vector<std::int64_t>& atMsValues) const;

  const CoachSurroundings& surroundings_;
  TurnFailureBackoff backoff_;
  std::optional<std::int64_t> toldIdentity_;  ///< the cause whose failure the person was told of last
};

}  // namespace halvo
