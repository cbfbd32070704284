// Which hour files may go: names, hours and plans.

#include <gtest/gtest.h>

#include <limits>

#include "CaptureShared/Foundation/WallHour.h"
#include "CaptureShared/Recording/Retention/VideoRetention.h"

namespace halvo {
namespace {

using namespace VideoRetention;
std::int64_t ms(const char* iso) { return ISO8601::parse(iso).value(); }

TEST(VideoRetention, namesOfHourFiles) {
  for (const auto* name : {"2026-11-16T03.mkv", "2026-11-16T03.part2.mkv"}) EXPECT_EQ(parseHourPrefix(name), "2026-11-16T03") << name;
  for (const auto* name : {"x.mkv", ".mkv", "2026-13-01T03.mkv", "2026-11-00T03.mkv", "2026-11-32T03.mkv", "2026-11-16T24.mkv", "2026-11-16T3.mkv",
                           "2026-11-16T+3.mkv", "2026-11-16T03.part.mkv", "2026-11-16T03.part-1.mkv", "2026-11-16T03.part1.part2.mkv",
                           "2026-11-16T03.mp4", "2026-11-16T03.mkv.tmp", "2026-11-16T03T04.mkv", "2026-11-16T03.part99999999999999999999.mkv"})
    EXPECT_FALSE(parseHourPrefix(name)) << name;
}

TEST(VideoRetention, hoursAcrossChangesOfTheClock) {
  const struct { const char *zone, *prefix, *start, *end; } cases[] = {
      {"America/New_York", "2026-11-16T03", "2026-11-16T08:00:00Z", "2026-11-16T09:00:00Z"},
      {"America/New_York", "2026-03-08T01", "2026-03-08T06:00:00Z", "2026-03-08T07:00:00Z"},
      {"America/New_York", "2026-11-01T00", "2026-11-01T04:00:00Z", "2026-11-01T05:00:00Z"},
      {"America/New_York", "2026-11-01T01", "2026-11-01T05:00:00Z", "2026-11-01T07:00:00Z"},     // twice
      {"Australia/Lord_Howe", "2026-10-04T02", "2026-10-03T15:30:00Z", "2026-10-03T16:00:00Z"},  // half of it is skipped
      {"Australia/Lord_Howe", "2026-04-05T01", "2026-04-04T14:00:00Z", "2026-04-04T15:30:00Z"},  // half of it twice
      {"America/St_Johns", "2010-03-14T00", "2010-03-14T03:30:00Z", "2010-03-14T03:31:00Z"},     // one minute of it
      {"America/St_Johns", "2010-11-06T23", "2010-11-07T01:30:00Z", "2010-11-07T03:30:00Z"},     // twice, across midnight
  };
  for (const auto& c : cases)
    EXPECT_EQ(WallHour::span(c.prefix, Calendar::named(c.zone)), (WallHour::Span{ms(c.start), ms(c.end)})) << c.zone << " " << c.prefix;
  for (const auto* none : {"2026-02-31T03", "2026-03-08T02", "2026-11-16"}) EXPECT_FALSE(hourStartMs(none, Calendar::named("America/New_York")));
}

TEST(VideoRetention, plans) {
  const auto utc = Calendar::utc();
  const auto now = ms("2026-11-16T12:30:00Z"), cutoff = now - 86'400'000, noon = ms("2026-11-15T12:00:00Z");
  const DeleteOlderThanDays oneDay{1};
  constexpr auto farthest = std::numeric_limits<std::int64_t>::max();
  using Writes = std::map<std::string, std::int64_t>;
  const std::string old = "2026-11-15T11.mkv", current = "2026-11-16T12.mkv";
  const struct {
    const char* name;
    std::string file;
    RetentionPolicy policy;
    std::optional<std::int64_t> deleteBeforeMs;
    std::optional<Writes> lastWrites;
    std::optional<Verdict> verdict;  // absent: not in the plan
  } cases[] = {
      {"its end is before the cutoff", old, oneDay, {}, {}, Verdict::delete_},
      {"its end is the cutoff", old, Disabled{}, noon, {}, Verdict::delete_},
      {"one millisecond earlier", old, Disabled{}, noon - 1, {}, Verdict::keptRecent},
      {"the later cutoff holds", old, DeleteOlderThanDays{90}, now, {}, Verdict::delete_},
      {"the current hour, though labelled", current, oneDay, farthest, {}, Verdict::keptCurrentHour},
      {"written at the cutoff", old, oneDay, {}, Writes{{old, cutoff}}, Verdict::keptRecent},
      {"0 days: every closed hour", "2026-11-16T11.mkv", DeleteOlderThanDays{0}, {}, {}, Verdict::delete_},
      {"an hour ago: it may be written to", old, DeleteOlderThanDays{0}, {}, Writes{{old, now - 3'600'000}}, Verdict::keptRecent},
      {"before that", old, DeleteOlderThanDays{0}, {}, Writes{{old, now - 3'600'001}}, Verdict::delete_},
      {"but not across a restart", old, DeleteOlderThanDays{0}, now - 60'000, Writes{{old, now - 60'001}}, Verdict::delete_},
      {"more days than there are", old, DeleteOlderThanDays{farthest}, {}, {}, Verdict::keptRecent},
      {"below 0 days", old, DeleteOlderThanDays{-1}, {}, {}, {}},
      {"no such day", "2026-02-31T03.mkv", oneDay, {}, {}, {}},
  };
  const std::set<std::string> labelled{"2026-11-16T12"};
  for (const auto& c : cases) {
    const auto plan = VideoRetention::plan({{c.file}, c.policy, labelled, c.deleteBeforeMs, c.lastWrites, now, utc});
    EXPECT_EQ(plan.empty() ? std::nullopt : std::optional(plan.front().verdict), c.verdict) << c.name;
  }
}

}  // namespace
}  // namespace halvo
