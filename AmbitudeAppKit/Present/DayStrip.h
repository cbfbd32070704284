#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "AmbitudeAppKit/Stores/DayStore.h"
#include "CaptureShared/Foundation/Calendar.h"

namespace halvo {

/// A day as one picture: apps, presence, verdicts and what was said, on one axis of time.
struct DayStrip {
  struct Block {
    std::int64_t fromMs = 0, toMs = 0;
    std::string label = {};
    int slot = 0;  ///< a colour: of the app, the presence (0 active, 1 idle, 2 away) or the verdict (see `Verdict`)
    std::string detail = {};
    bool operator==(const Block&) const = default;
  };
  /// The slots of the verdict lane.
  enum Verdict { onTask, notAligned, idle, other };
  struct Mark {
    enum class Kind { checkIn, declared, cleared, quiet, quietOver };
    std::int64_t ms = 0;
    Kind kind = Kind::checkIn;
    std::string words = {};
    bool operator==(const Mark&) const = default;
  };
  static constexpr int appSlots = 10;
  static constexpr int locked = -1;  ///< the slot of the lock screen

  std::int64_t fromMs = 0, toMs = 0;
  std::vector<Block> apps = {}, presence = {}, verdicts = {};
  std::vector<Mark> marks = {};
  bool operator==(const DayStrip&) const = default;

  /// The day of `nowMs`, which begins at 04:00. A verdict holds until the next one, for ten minutes at the most.
  static DayStrip of(const DayStore::Rows& rows, std::int64_t nowMs, const Calendar& calendar);

  /// What was so at a moment, a line each: the time, the app, presence, the verdict with its reason, and marks that lie within `reachMs`.
  std::vector<std::string> explain(std::int64_t ms, std::int64_t reachMs, const Calendar& calendar) const;
};

}  // namespace halvo
