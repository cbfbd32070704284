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
  const struct { const char* name; Moment moment; Decision want; } cases[] = {
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
  const struct { std::int64_t ms; const char* text; } cases[] = {
      {0, "0s"}, {59'999, "59s"}, {60'000, "1m"}, {3'599'999, "59m"}, {3'600'000, "1h"}, {3'659'999, "1h"}, {7'500'000, "2h 5m"}};
  for (const auto& c : cases) EXPECT_EQ(humanDuration(c.ms), c.text) << c.ms;
  EXPECT_EQ(reason(190'000, 1'000),
            "signals stale since 1970-01-01T00:00:01Z (3m with no new signals.sqlite row) — not judged; capture may have stopped");
  EXPECT_EQ(reasonPredatesPause(0, 60'000, 120'000),
            "recording is paused (since 1970-01-01T00:01:00Z) and the newest signals.sqlite row is from 1970-01-01T00:00:00Z, before the "
            "pause began (~2m "
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
  const auto updated = note.updatedAtMs;
  EXPECT_TRUE(SignalsStaleNoteStore::isCurrent(note, updated) && SignalsStaleNoteStore::isCurrent(note, updated + 300'000));
  EXPECT_FALSE(SignalsStaleNoteStore::isCurrent(note, updated - 1) || SignalsStaleNoteStore::isCurrent(note, updated + 300'001));
}

TEST(ActivityTimeline, readsSamplesAsStretchesAndMoments) {
  using namespace ActivityTimeline;
  const std::vector<Sample> samples{{.tsMs = 0, .app = "A", .idleSec = 60},
                                    {.tsMs = 1500, .app = "B", .idleSec = 61},
                                    {.tsMs = 3000, .app = "B", .idleSec = 181},
                                    {.tsMs = 60'000, .app = "loginwindow", .idleSec = 0},
                                    {.tsMs = 61'500, .app = "A", .idleSec = 1}};
  EXPECT_EQ(appSpans(samples, {.fromMs = 0, .toMs = 60'000}),
            (std::vector<Span<std::string>>{{0, 1500, "A"}, {1500, 13'000, "B"}, {60'000, 60'000, "loginwindow"}}))
      << "a sample stands for ten seconds at most";
  using enum Presence;
  EXPECT_EQ(presenceSpans(samples, {.fromMs = 0, .toMs = 70'000}),
            (std::vector<Span<Presence>>{
                {0, 1500, active}, {1500, 3000, idle}, {3000, 13'000, away}, {60'000, 61'500, away}, {61'500, 63'000, active}}));
  using enum Kind;
  EXPECT_EQ(events(samples, 0, 60'000),
            (std::vector<Event>{{1500, wentIdle, ""}, {1500, appSwitch, "B"}, {3000, wentAway, ""}, {60'000, appSwitch, "loginwindow"}}));
}

}  // namespace
}  // namespace halvo
