#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "CaptureShared/EventLog/DeltaFold.h"
#include "CaptureShared/EventLog/IncrementalJSONLReader.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Records/ClassifierTick.h"
#include "CaptureShared/Records/CoachCorrection.h"
#include "CaptureShared/Records/EventLogEvent.h"
#include "CaptureShared/Records/GateDecisionRecord.h"
#include "CaptureShared/Signals/ActivityTimeline.h"

namespace halvo {

/// The latest stretch of a data root, kept up as its files grow: a poll costs what came. One thread.
class DayStore {
 public:
  /// Rows in time order, from `fromMs` on. Of events only, the person's latest quiet may lie further back: "until I say" can be old.
  struct Rows {
    const std::vector<EventLogEvent>& events;
    const std::vector<ClassifierTick>& ticks;
    const std::vector<GateDecisionRecord>& decisions;
    const std::vector<ActivityTimeline::Sample>& samples;  ///< thinned: a change of app or presence, else one in `sampleEveryMs`
    /// The corrections that were not deleted; absent without their file, and then those of the events stand.
    const std::optional<std::vector<CoachCorrection>>& corrections;
  };
  static constexpr std::int64_t sampleEveryMs = 6'000;  ///< less than a sample may stand for

  static constexpr std::int64_t sampleLookMs = 5'000;  ///< between two looks at the database, which costs an opening

  DayStore(std::filesystem::path root, std::int64_t fromMs);

  /// Reads what came since the last call; whether anything did. A file that is missing has no rows; one that can't be read keeps what it had,
  /// and `trouble` tells of it.
  bool refresh(std::int64_t nowMs);
  Rows rows() const;
  /// The events that the last `refresh` brought, in the order of their file. Of a file that was read anew these are all.
  struct Arrived {
    std::span<const EventLogEvent> events;
    bool isAnew = false;
  };
  Arrived arrived() const { return {std::span(events_.rows.committed()).subspan(arrivedFrom_), isAnew_}; }
  std::int64_t fromMs() const { return fromMs_; }
  const std::optional<std::string>& trouble() const { return trouble_; }

  /// Reads the event log whole for the latest quiet that lies before `fromMs`; once, and slow for a long log.
  void findOldQuiet();
  /// Begins anew with more of the past.
  void reachBack(std::int64_t fromMs);

 private:
  template <class Row>
  struct Feed {
    IncrementalJSONLReader<Row> reader;
    DeltaFold<Row> rows;
    bool hasBegun = false;
  };
  template <class Row>
  bool follow(Feed<Row>& feed);
  bool sample(std::int64_t nowMs);
  bool followCorrections();

  std::filesystem::path root_;
  std::int64_t fromMs_;
  Feed<EventLogEvent> events_;
  Feed<ClassifierTick> ticks_;
  Feed<GateDecisionRecord> decisions_;
  std::vector<ActivityTimeline::Sample> samples_;
  std::int64_t sampledUpToMs_, sampleLookedMs_ = 0;
  std::optional<std::vector<CoachCorrection>> corrections_;
  std::optional<FileIdentity> correctionsRead_;
  std::size_t arrivedFrom_ = 0;
  bool isAnew_ = true, hasOldQuiet_ = false;
  std::optional<std::string> trouble_;
};

}  // namespace halvo
