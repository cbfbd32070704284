#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace date {
class time_zone;
}

namespace halvo {

/// Wall-clock time in one zone. Names of months and AM/PM are English whatever the locale. Cheap to copy.
class Calendar {
 public:
  /// The zone named by TZ when that is a zone's name, else the machine's own, else UTC. Read when called, not kept.
  static Calendar local();
  static Calendar utc();
  /// Throws `std::runtime_error` for a name that the zone database lacks.
  static Calendar named(std::string_view zone);

  struct Fields {
    int year = 1970, month = 1, day = 1, hour = 0, minute = 0, second = 0, millisecond = 0;
    int offsetSec = 0;  ///< east of Greenwich
  };
  Fields fields(std::int64_t ms) const;
  /// The instant of a wall-clock time; a time skipped in spring counts as the first instant behind the gap, and of the two in autumn
  /// the earlier is meant.
  std::int64_t instant(int year, int month, int day, int hour, int minute = 0) const;
  /// The instant of `hour`:00 on the day of `afterMs` when that lies behind it, else of the next day.
  std::int64_t nextHour(std::int64_t afterMs, int hour) const;

  std::string hourMinute(std::int64_t ms) const;           ///< "H:mm", as in "9:05"
  std::string monthDayHourMinute(std::int64_t ms) const;   ///< "MMM d, H:mm", as in "Mar 4, 9:15"
  std::string monthDay2HourMinute(std::int64_t ms) const;  ///< "MM-dd HH:mm"
  std::string clock12(std::int64_t ms) const;              ///< "h:mma" lower case without blanks, as in "3:30pm"
  std::string declared(std::int64_t ms) const;             ///< "yyyy-MM-dd h:mma", am and pm in lower case
  /// "yyyy-MM-dd'T'HH:mm:ss.SSSXXX" with the zone's offset ("Z" when it is zero): the `at` of a judgment row.
  std::string isoMillis(std::int64_t ms) const;

 private:
  explicit Calendar(const date::time_zone* zone) : zone_(zone) {}
  const date::time_zone* zone_;
};

/// ISO 8601 texts that do not depend on a zone.
namespace ISO8601 {
std::string utcSeconds(std::int64_t ms);  ///< "yyyy-MM-dd'T'HH:mm:ss'Z'"
std::string utcMillis(std::int64_t ms);   ///< "yyyy-MM-dd'T'HH:mm:ss.SSS'Z'"
/// Milliseconds of "yyyy-MM-ddTHH:mm:ss" with 0 to 9 fraction digits and Z, +hh:mm or +hhmm; absent for anything else.
std::optional<std::int64_t> parse(std::string_view text);
}  // namespace ISO8601

}  // namespace halvo
