#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "AmbitudeAppKit/Present/DayStrip.h"
#include "AmbitudeCore/Folds/UserQuietWindow.h"

namespace halvo {

/// What the first page shows.
struct NowPage {
  std::string task = {};   ///< empty: nothing is declared
  std::string clock = {};  ///< "since 14:02 (38 min), until 17:00 (1 h 12 min left)"
  bool isOverdue = false;
  std::string why = {};
  struct Quiet {
    std::int64_t requestedMs = 0;
    std::string words = {};  ///< "Quiet until 16:00"
    bool operator==(const Quiet&) const = default;
  };
  std::optional<Quiet> quiet = {};
  /// "On task a minute ago: you write the essay in Gedit"; empty without one of the last ten minutes and of what is declared now.
  std::string verdict = {};
  DayStrip day = {};
  bool operator==(const NowPage&) const = default;

  struct Moment {
    const DayStore::Rows& rows;
    std::optional<std::string> taskBody = {};  ///< as `CurrentTask::read` gives it
    std::int64_t nowMs = 0;
    const Calendar& calendar;
  };
  static NowPage of(const Moment& moment);
};

/// Times as people say them.
namespace Durations {
/// "under a minute", "38 min", "1 h 12 min", "2 h", "3 days".
std::string spoken(std::int64_t ms);
/// "Quiet until 16:00", "Quiet until Mar 4, 9:15" when that is not within twelve hours, "Quiet until you say otherwise" for one without an end.
std::string quietUntil(const UserQuietWindow& window, std::int64_t nowMs, const Calendar& calendar);
/// What a person chooses a length of quiet by.
std::string label(UserQuietDuration duration);
}  // namespace Durations

}  // namespace halvo
