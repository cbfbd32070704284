#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "CaptureShared/EventLog/IncrementalJSONLReader.h"
#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Records/GateDecisionRecord.h"

namespace halvo {

/// What happens, as it happens: the events, verdicts and gate decisions of a data root as lines for a person. It follows the files and
/// nothing else, so the programs that write them may come and go.
class LiveLog {
 public:
  enum class Kind {
    user,         ///< what the person said
    coach,        ///< what Lark said, and in brackets why another model than usual answered
    trouble,      ///< what the person is told went wrong
    declaration,  ///< an intention declared or cleared
    verdict,
    gate,
    other  ///< every other event, by its type
  };
  struct Line {
    std::int64_t tsMs = 0;
    Kind kind = Kind::other;
    std::string text;  ///< one line, safe on a terminal
    std::string thinking = {};  ///< likewise; what Lark thought before it said so, when the log holds that
  };

  explicit LiveLog(const std::filesystem::path& dataRoot);

  /// What came since the last call, oldest first; at the first call everything. A file that is missing or can't be read has no lines now
  /// and is tried again at the next call. A file that was replaced gives only its rows later than what was already shown.
  std::vector<Line> poll();

  static bool isConversation(Kind kind);
  /// "14:02:07  verdict   NOT_ALIGNED [Firefox] ...".
  static std::string render(const Line& line, const Calendar& calendar);
  /// The same for its thinking; empty when there is none.
  static std::string renderThinking(const Line& line, const Calendar& calendar);

 private:
  template <class Row>
  struct Feed {
    IncrementalJSONLReader<Row> reader;
    std::int64_t shownUpToMs = INT64_MIN;
  };
  template <class Row, class F>
  void take(Feed<Row>& feed, std::vector<Line>& lines, F&& lineOf);

  Feed<EventLogEvent> events_;
  Feed<ClassifierTick> ticks_;
  Feed<GateDecisionRecord> decisions_;
};

}  // namespace halvo
