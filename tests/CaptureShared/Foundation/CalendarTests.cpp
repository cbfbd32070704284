#include <gtest/gtest.h>

#include "CaptureShared/Foundation/Calendar.h"

namespace halvo {
namespace {

std::int64_t ms(const char* iso) { return ISO8601::parse(iso).value(); }

TEST(Calendar, wallClockTimesAcrossBothChangesOfTheClock) {
  const auto newYork = Calendar::named("America/New_York");
  const struct { const char* name; int month, day, hour, minute; const char* utc; const char* local; } cases[] = {
      {"the minute before spring forward", 3, 8, 1, 59, "2026-03-08T06:59:00Z", "2026-03-08T01:59:00.000-05:00"},
      {"skipped: the first instant behind the gap", 3, 8, 2, 30, "2026-03-08T07:00:00Z", "2026-03-08T03:00:00.000-04:00"},
      {"of the two in autumn the earlier", 11, 1, 1, 30, "2026-11-01T05:30:00Z", "2026-11-01T01:30:00.000-04:00"},
      {"behind the autumn change", 11, 1, 2, 0, "2026-11-01T07:00:00Z", "2026-11-01T02:00:00.000-05:00"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const auto at = newYork.instant(2026, c.month, c.day, c.hour, c.minute);
    EXPECT_EQ(ISO8601::utcSeconds(at), c.utc);
    EXPECT_EQ(newYork.isoMillis(at), c.local);
    EXPECT_EQ(ISO8601::parse(newYork.isoMillis(at)), at);
  }
  EXPECT_EQ(newYork.nextHour(ms("2026-03-08T04:00:00Z"), 5), ms("2026-03-08T09:00:00Z"));  // the night is an hour short
  EXPECT_EQ(newYork.nextHour(ms("2026-03-08T09:00:00Z"), 5), ms("2026-03-09T09:00:00Z"));  // exactly then: the next one
  EXPECT_EQ(newYork.nextHour(ms("2026-12-31T12:00:00Z"), 5), ms("2027-01-01T10:00:00Z"));
}

TEST(Calendar, printsEachForm) {
  const auto newYork = Calendar::named("America/New_York");
  const auto noon = newYork.instant(2026, 3, 4, 12, 5), midnight = newYork.instant(2026, 3, 4, 0, 5),
             evening = newYork.instant(2026, 3, 4, 21, 15);
  EXPECT_EQ(newYork.clock12(noon), "12:05pm");
  EXPECT_EQ(newYork.clock12(midnight), "12:05am");
  EXPECT_EQ(newYork.declared(evening), "2026-03-04 9:15pm");
  EXPECT_EQ(newYork.hourMinute(midnight), "0:05");
  EXPECT_EQ(newYork.monthDayHourMinute(evening), "Mar 4, 21:15");
  EXPECT_EQ(newYork.monthDay2HourMinute(noon), "03-04 12:05");
  EXPECT_EQ(Calendar::named("Asia/Kathmandu").isoMillis(ms("2026-01-01T00:00:00.007Z")), "2026-01-01T05:45:00.007+05:45");
  EXPECT_EQ(Calendar::utc().isoMillis(-1), "1969-12-31T23:59:59.999Z");
  EXPECT_EQ(ISO8601::utcMillis(-1), "1969-12-31T23:59:59.999Z");
  EXPECT_THROW(Calendar::named("Mars/Olympus"), std::runtime_error);
}

TEST(ISO8601, readsEveryFormThatWritersUseAndNoOther) {
  const struct {
    const char* text;
    const char* same;  // null: not a time
  } cases[] = {
      {"2026-03-04T09:15:00Z", "2026-03-04T09:15:00.000Z"},
      {"2026-03-04T09:15:00.5Z", "2026-03-04T09:15:00.500Z"},
      {"2026-03-04T09:15:00.123456789-05:00", "2026-03-04T14:15:00.123Z"},
      {"2026-03-04T09:15:00.12+0545", "2026-03-04T03:30:00.120Z"},
      {"2024-02-29T00:00:00Z", "2024-02-29T00:00:00.000Z"},
      {"2026-02-29T00:00:00Z", nullptr},
      {"2026-03-04T09:15:00.1234567890Z", nullptr},
      {"2026-03-04T09:15:00.Z", nullptr},
      {"2026-03-04T09:15:00", nullptr},
      {"2026-03-04 09:15:00Z", nullptr},
      {"2026-03-04T24:15:00Z", nullptr},
      {"2026-13-04T09:15:00Z", nullptr},
      {"2026-03-04T09:15:00Z ", nullptr},
      {"2026-03-04T09:15:00+5:45", nullptr},
      {"2026-03-04T09:15:00+05:60", nullptr},
      {"+026-03-04T09:15:00Z", nullptr},
      {"", nullptr},
  };
  for (const auto& c : cases) {
    const auto read = ISO8601::parse(c.text);
    EXPECT_EQ(read ? ISO8601::utcMillis(*read) : "no time", c.same ? c.same : "no time") << c.text;
  }
}

}  // namespace
}  // namespace halvo
