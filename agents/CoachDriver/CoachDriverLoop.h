#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <stop_token>
#include <string>

#include "AmbitudeCore/Gate/GateOutcome.h"
#include "AmbitudeCore/Gate/GatePollingCadence.h"
#include "AmbitudeCore/Gate/GateUnconstrainedBreaker.h"
#include "AmbitudeCore/Gate/Layer3Trigger.h"
#include "AmbitudeCore/Memory/StandingMemoryReader.h"
#include "CaptureShared/EventLog/RetainedDriverLog.h"
#include "agents/CoachDriver/CoachTurns.h"
#include "agents/CoachDriver/CorrectionsReader.h"
#include "agents/CoachDriver/DoNotDisturbKeeper.h"
#include "agents/CoachDriver/ServiceWatch.h"

namespace halvo {

/// The coach's loop: wakes, reads what happened, and either answers the person, holds, or asks the gate whether to speak up. Everything it
/// does reaches the world as rows; everything it knows comes from rows, so it may be ended at any moment.
class CoachDriverLoop {
 public:
  static constexpr double wakeSec = 5;        ///< between wakes while nothing happens
  static constexpr double newsPollSec = 0.25;  ///< one stat of each log; a change wakes the loop at once
  static constexpr int gateMaxTokens = 4096;
  static constexpr int gateMaxBackoffTicks = 8;

  explicit CoachDriverLoop(CoachSurroundings surroundings);

  /// Runs until the token stops.
  void run(const std::stop_token& stop);
  /// One wake. Throws `Cancelled` when `stop` ended it; every other trouble becomes a log line.
  void wake(const std::stop_token& stop);

 private:
  struct Moment {
    std::span<const EventLogEvent> events;
    std::span<const ClassifierTick> ticks;
    std::int64_t floorMs = 0, asOfMs = 0;
    std::int64_t eventsSize = 0;  ///< bytes of the event log that were read
    CoachPreferences preferences = {};
    std::vector<CoachCorrection> corrections = {};
    std::optional<StandingMemory> memory = {};
  };

  void act(const Moment& moment, const Layer3Trigger::Outcome& outcome, const std::stop_token& stop);
  void reply(const Moment& moment, const std::stop_token& stop);
  void consult(const Moment& moment, const std::stop_token& stop);
  std::optional<GateOutcome> askGate(const Moment& moment, const std::stop_token& stop);
  bool checkIn(const Moment& moment, const std::string& summary, std::vector<EventLogEvent> before, const std::stop_token& stop);
  void recordDecision(const Moment& moment, const GateOutcome& outcome);
  GatePollingCadence::Moment cadenceMoment(const Moment& moment) const;
  CoachPreferences readPreferences();
  /// What was taught and learned, less what was to be forgotten.
  void recall(Moment& moment);
  void waitForNews(const std::stop_token& stop);
  /// Logs a line when it differs from the last one under the same heading: once, not at each wake.
  void logChange(std::string& last, const std::string& line);

  CoachSurroundings surroundings_;
  ServiceWatch service_;  ///< from its making on, the backend of `surroundings_`
  CoachTurns turns_;
  RetainedDriverLog logs_;
  StandingMemoryReader memory_;
  CorrectionsReader corrections_;
  DoNotDisturbKeeper doNotDisturb_;
  GatePollingCadence::WakeGuard guard_;
  GatePollingCadence::Config cadence_;
  GateUnconstrainedBreaker breaker_{gateMaxBackoffTicks};
  std::string lastState_, lastTrouble_, lastFailure_, lastPreferencesTrouble_;
  bool waitIsLogged_ = false;  ///< the cadence's wait was told; it counts down at every wake, which is no news
  /// How far the two logs had been read.
  struct Seen {
    std::optional<IncrementalJSONLReader<EventLogEvent>::Watermark> events = {};
    std::optional<IncrementalJSONLReader<ClassifierTick>::Watermark> ticks = {};
    bool operator==(const Seen&) const = default;
  };
  Seen seen_;
  bool restsUntilNews_ = false;  ///< the gate had no new input at `seen_`
  bool looksAgain_ = false;    ///< a row was read that belongs to the next look
};

}  // namespace halvo
