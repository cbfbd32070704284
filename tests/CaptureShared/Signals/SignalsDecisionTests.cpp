#include <gtest/gtest.h>

#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Signals/ActivityTimeline.h"
#include "CaptureShared/Signals/SignalsNotes.h"
#include "CaptureShared/Signals/SignalsStaleness.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {

using namespace SignalsStaleness;

TEST(SignalsStaleness, decide) {
  constexpr std::int64_t now = 10'000'000, recent = now - 240'000, long_ago = now - 240'001;
  const struct {
    const char* name;
    Moment moment;
    Decision want;
  } cases[] = {
      {"never sampled", {.nowMs = now, .classifierLastRanAtMs = recent}, NotChecked{}},
      {"a gap of exactly the threshold", {.latestTickMs = now - 180'000, .nowMs = now}, Fresh{}},
      {"a tick from the future", {.latestTickMs = now + 5, .nowMs = now}, Fresh{}},
      {"one more, and the classifier ran just recently enough",
       {.latestTickMs = now - 180'001, .nowMs = now, .classifierLastRanAtMs = recent},
       StaleConfirmed{180'001, now - 180'001}},
      {"the classifier stopped as well",
       {.latestTickMs = now - 180'001, .nowMs = now, .classifierLastRanAtMs = long_ago},
       StaleButUntrustworthy{180'001}},
      {"it never ran", {.latestTickMs = now - 180'001, .nowMs = now}, StaleButUntrustworthy{180'001}},
      {"paused for a moment",
       {.pause = Active{now - 179'999}, .latestTickMs = now - 180'000, .nowMs = now, .classifierLastRanAtMs = recent},
       PredatesPause{now - 180'000, now - 179'999}},
      {"paused for the threshold",
       {.pause = Active{now - 180'000}, .latestTickMs = now - 180'001, .nowMs = now, .classifierLastRanAtMs = recent},
       StaleConfirmed{180'001, now - 180'001}},
      {"paused for long, untrustworthy",
       {.pause = Active{now - 900'000}, .latestTickMs = now - 950'000, .nowMs = now, .classifierLastRanAtMs = long_ago},
       PredatesPause{now - 950'000, now - 900'000}},
      {"the pause began with the newest tick", {.pause = Active{now - 180'000}, .latestTickMs = now - 180'000, .nowMs = now}, Fresh{}},
      {"a pause of unknown start", {.pause = Active{}, .latestTickMs = now - 200'000, .nowMs = now}, StaleButUntrustworthy{200'000}},
  };
  for (const auto& c : cases) EXPECT_EQ(decide(c.moment), c.want) << c.name;
}

TEST(SignalsStaleness, saysItInWords) {
  const struct {
    std::int64_t ms;
    const char* text;
  } cases[] = {{0, "0s"},           {59'999, "59s"},        {60'000, "1m"}, {3'599'999, "59m"}, {3'600'000, "1h"},
               {3'659'999, "1h"},   {7'500'000, "2h 5m"}};
  for (const auto& c : cases) EXPECT_EQ(humanDuration(c.ms), c.text) << c.ms;
  EXPECT_EQ(reason(190'000, 1'000), "signals stale since 1970-01-01T00:00:01Z (3m with no new signals.sqlite row) — not judged; capture may have stopped");
  EXPECT_EQ(reasonPredatesPause(0, 60'000, 120'000),
            "recording is paused (since 1970-01-01T00:01:00Z) and the newest signals.sqlite row is from 1970-01-01T00:00:00Z, before the pause began (~2m "
            "ago) — not judged; waiting for Signals to write a current row");
}

TEST(SignalsNotes, comeBackAndExpire) {
  const test::TemporaryFolder folder;
  const auto file = SignalsStaleNoteStore::url(folder.path());
  const SignalsStaleNote note{.lastGoodTickAtMs = 1'700'000'000'123, .updatedAtMs = 1'700'000'000'456};
  EXPECT_EQ(SignalsStaleNoteStore::read(file), std::nullopt);
  SignalsStaleNoteStore::write(note, file);
  EXPECT_EQ(SignalsStaleNoteStore::read(file), note);
  folder.write("signals-stale-note.json", R"({"lastGoodTickAtMs":1,"updatedAt":"1970-01-01T00:00:02Z"})");  // without a fraction
  EXPECT_EQ(SignalsStaleNoteStore::read(file), (SignalsStaleNote{1, 2000}));
  for (const char* broken : {"", "[]", R"({"lastGoodTickAtMs":1})", R"({"lastGoodTickAtMs":1,"updatedAt":2000})"}) {
    folder.write("signals-stale-note.json", broken);
    EXPECT_EQ(SignalsStaleNoteStore::read(file), std::nullopt) << broken;
  }
  SignalsStaleNoteStore::clear(file);
  SignalsStaleNoteStore::clear(file);
  EXPECT_FALSE(std::filesystem::exists(file));
  const auto updated = note.updatedAtMs;
  EXPECT_TRUE(SignalsStaleNoteStore::isCurrent(note, updated) && SignalsStaleNoteStore::isCurrent(note, updated + 300'000));
  EXPECT_FALSE(SignalsStaleNoteStore::isCurrent(note, updated - 1) || SignalsStaleNoteStore::isCurrent(note, updated + 300'001));

  const auto intent = CaptureRemovalIntentStore::url(folder.path());
  CaptureRemovalIntentStore::write({.removedAtMs = 5000}, intent);
  const auto read = CaptureRemovalIntentStore::read(intent);
  ASSERT_TRUE(read);
  EXPECT_FALSE(CaptureRemovalIntentStore::isSuperseded(*read, {}, 0));
  EXPECT_FALSE(CaptureRemovalIntentStore::isSuperseded(*read, 5010, 10));
  EXPECT_TRUE(CaptureRemovalIntentStore::isSuperseded(*read, 5011, 10));
}

TEST(ActivityTimeline, readsSamplesAsStretchesAndMoments) {
  using namespace ActivityTimeline;
  const std::vector<Sample> samples{{.tsMs = 0, .app = "A", .idleSec = 0},          {.tsMs = 1500, .app = "A", .idleSec = 60},
                                    {.tsMs = 3000, .app = "B", .idleSec = 61, .browserTitle = "one"},
                                    {.tsMs = 4500, .app = "B", .idleSec = 181, .browserTitle = "two"},
                                    {.tsMs = 60'000, .app = "loginwindow"},         {.tsMs = 61'500, .app = "A", .idleSec = 1}};
  const Range all{.fromMs = 0, .toMs = 100'000};
  EXPECT_EQ(appSpans(samples, all), (std::vector<Span<std::string>>{{0, 3000, "A"}, {3000, 14'500, "B"}, {60'000, 61'500, "loginwindow"}, {61'500, 63'000, "A"}}))
      << "a sample stands for ten seconds at most";
  EXPECT_EQ(presenceSpans(samples, all), (std::vector<Span<Presence>>{{0, 3000, Presence::active},
                                                                     {3000, 4500, Presence::idle},
                                                                     {4500, 14'500, Presence::away},
                                                                     {60'000, 61'500, Presence::away},
                                                                     {61'500, 63'000, Presence::active}}));
  EXPECT_EQ(presenceSpans(samples, {.fromMs = 0, .toMs = 5000, .minSpanMs = 2000}), (std::vector<Span<Presence>>{{0, 5000, Presence::active}}));
  const auto moments = events(samples, 0, 100'000);
  EXPECT_EQ(moments, (std::vector<Event>{{3000, Kind::wentIdle, ""},
                                         {3000, Kind::appSwitch, "B"},
                                         {4500, Kind::wentAway, ""},
                                         {4500, Kind::tabSwitch, "two"},
                                         {60'000, Kind::appSwitch, "loginwindow"},
                                         {61'500, Kind::cameBack, ""},
                                         {61'500, Kind::appSwitch, "A"}}));
  EXPECT_EQ(eventAfter(moments, 4500)->tsMs, 60'000);
  EXPECT_EQ(eventBefore(moments, 3000), std::nullopt);
  EXPECT_EQ(colorSlot("Firefox", 8), colorSlot("Firefox", 8));
  EXPECT_EQ(colorSlot("Firefox", 0), 0);
}

}  // namespace
}  // namespace halvo
