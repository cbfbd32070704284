#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "CaptureShared/EventLog/DeltaFold.h"
#include "CaptureShared/EventLog/IncrementalJSONLReader.h"
#include "CaptureShared/Foundation/Log.h"
#include "CaptureShared/Records/ClassifierTick.h"
#include "CaptureShared/Records/EventLogEvent.h"

namespace halvo {

/// What the coach driver holds of the two logs between its polls. One thread.
class RetainedDriverLog {
 public:
  /// One followed file.
  template <class Row>
  struct Feed {
    std::string name;
    IncrementalJSONLReader<Row> reader;
    DeltaFold<Row> fold;
    std::shared_ptr<std::int64_t> leftOut = std::make_shared<std::int64_t>(0);  ///< rows that `Keep` had no use for
    std::int64_t skippedLines = 0;  ///< complete lines that did not decode
    bool hasRead = false;
    bool invalidatedByFailure = false;

    const std::vector<Row>& sorted() { return fold.sorted(); }
  };

  /// Both lists are sorted by time and live until the next refresh.
  struct Ready {
    const std::vector<EventLogEvent>& events;
    const std::vector<ClassifierTick>& ticks;
  };
  struct EventsUnreadable {
    std::string error;
  };
  struct TicksUnreadable {
    std::string error;
  };
  using Outcome = std::variant<Ready, EventsUnreadable, TicksUnreadable>;

  /// Whether a row is worth its memory, and in what form: it may cut the row down. Absent: every row, whole.
  struct Keep {
    std::function<bool(EventLogEvent&)> event;
    std::function<bool(ClassifierTick&)> tick;
  };

  RetainedDriverLog(const std::filesystem::path& eventsURL, const std::filesystem::path& ticksURL, LogSink log, const Keep& keep = {});

  /// Reads what came since the last call: events first, then ticks. A missing file is an empty list.
  Outcome refresh();
  void invalidate();

  const Feed<EventLogEvent>& events() const { return events_; }
  const Feed<ClassifierTick>& ticks() const { return ticks_; }

 private:
  Feed<EventLogEvent> events_;
  Feed<ClassifierTick> ticks_;
  LogSink log_;
};

}  // namespace halvo
