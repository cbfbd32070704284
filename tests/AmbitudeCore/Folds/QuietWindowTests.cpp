#include <gtest/gtest.h>

#include "AmbitudeCore/Folds/CoachProjection.h"
#include "AmbitudeCore/Folds/DoNotDisturbSupervisor.h"
#include "AmbitudeCore/Folds/GoQuietArguments.h"
#include "AmbitudeCore/Folds/UserQuietWindow.h"
#include "CaptureShared/Records/CoachCorrection.h"

namespace halvo {
namespace {
const Calendar newYork = Calendar::named("America/New_York");

EventLogEvent quiet(std::int64_t ms, JSONObject detail) {
  return {.tsMs = ms, .type = "user_quiet_requested", .detail = std::move(detail)};
}
EventLogEvent event(std::int64_t ms, std::string type, JSONObject detail) {
  return {.tsMs = ms, .type = std::move(type), .detail = std::move(detail)};
}

TEST(UserQuietWindow, latest) {
  using Window = UserQuietWindow;
  const struct {
    const char* name;
    std::vector<EventLogEvent> events;
    std::int64_t asOfMs;
    std::optional<Window> want;
    bool inForce;
  } cases[] = {
      {"nothing asked for", {}, 50, std::nullopt, false},
      {"in force, with its reason", {quiet(10, {{"quiet_until_ts_ms", 100}, {"reason", "exam"}})}, 99, Window{10, 100, "exam", {}}, true},
      {"over at its end exactly", {quiet(10, {{"quiet_until_ts_ms", 100}})}, 100, Window{10, 100, {}, {}}, false},
      {"the tool's own key serves too", {quiet(10, {{"user_quiet_until_ts_ms", 100}})}, 50, Window{10, 100, {}, {}}, true},
      {"asked for later than now", {quiet(10, {{"quiet_until_ts_ms", 100}})}, 9, std::nullopt, false},
      {"the newest request counts, shorter or not",
       {quiet(10, {{"quiet_until_ts_ms", 900}}), quiet(20, {{"quiet_until_ts_ms", 30}})},
       40,
       Window{20, 30, {}, {}},
       false},
      {"a request without an end opens nothing and ends nothing",
       {quiet(10, {{"quiet_until_ts_ms", 900}}), quiet(20, {{"quiet_until_ts_ms", "soon"}})},
       40,
       Window{10, 900, {}, {}},
       true},
      {"cancelled", {quiet(10, {{"quiet_until_ts_ms", 900}}), UserQuietCancelledEvent::make(10, 30)}, 40, Window{10, 900, {}, 30}, false},
      {"another window's cancel",
       {quiet(10, {{"quiet_until_ts_ms", 900}}), UserQuietCancelledEvent::make(9, 30)},
       40,
       Window{10, 900, {}, {}},
       true},
      {"a cancel still to come",
       {quiet(10, {{"quiet_until_ts_ms", 900}}), UserQuietCancelledEvent::make(10, 41)},
       40,
       Window{10, 900},
       true}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const auto window = Window::latest(c.events, c.asOfMs);
    EXPECT_EQ(window, c.want);
    EXPECT_EQ(window && window->isInForce(c.asOfMs), c.inForce);
  }
  EXPECT_EQ((Window{10, 100, {}, 30}.endReason()), UserQuietEndReason::cancelled);
  EXPECT_EQ((Window{10, 100, {}, 100}.endReason()), UserQuietEndReason::elapsed) << "a cancel behind the end cancels nothing";
}

TEST(UserQuietDuration, ends) {
  const auto lateEvening = newYork.instant(2026, 3, 4, 23), night = newYork.instant(2026, 3, 5, 2),
             boundary = newYork.instant(2026, 3, 5, 4);
  EXPECT_EQ(endMs(UserQuietDuration::restOfDay, lateEvening, newYork), boundary);
  EXPECT_EQ(endMs(UserQuietDuration::restOfDay, night, newYork), boundary);
  EXPECT_EQ(endMs(UserQuietDuration::restOfDay, boundary, newYork), newYork.instant(2026, 3, 6, 4)) << "at the boundary a new day begins";
  EXPECT_EQ(UserQuietDayBoundary::next(newYork.instant(2026, 3, 8, 1, 30), newYork) - newYork.instant(2026, 3, 8, 1, 30), 90 * 60'000)
      << "an hour less in the night the clocks go forward";
  EXPECT_EQ(UserQuietDayBoundary::next(newYork.instant(2026, 11, 1, 0, 30), newYork) - newYork.instant(2026, 11, 1, 0, 30), 270 * 60'000)
      << "an hour more when they go back";
  EXPECT_EQ(CoachCorrection::expiry(CoachCorrection::Lasts::restOfToday, boundary, newYork), newYork.instant(2026, 3, 5, 5))
      << "a correction's day ends an hour later";
  EXPECT_EQ(endMs(UserQuietDuration::thirtyMinutes, 5, newYork), 1'800'005);
  EXPECT_EQ(endMs(UserQuietDuration::indefinitely, 0, newYork), 3'153'600'000'000);
}

TEST(GoQuietArguments, parseAndAnswer) {
  const struct {
    const char* arguments;
    GoQuietArguments::Parsed want;
    std::string answer;
    std::optional<std::int64_t> untilMs;
  } cases[] = {
      {R"({"minutes":30})", GoQuietArguments::Minutes{30, 30}, "Quiet for 30 minutes.", 1'800'000},
      {R"({"minutes":2})", GoQuietArguments::Minutes{2, 5},
       "Quiet for 5 minutes — NOT the 2 you sent: `minutes` must be between 5 and 1440, so it was set to 5. If that is not what they asked "
       "for, tell them.",
       300'000},
      {R"({"minutes":5000})", GoQuietArguments::Minutes{5000, 1440},
       "Quiet for 1440 minutes — NOT the 5000 you sent: `minutes` must be between 5 and 1440, so it was set to 1440. If that is not what "
       "they asked for, tell them.",
       86'400'000},
      {R"({"minutes":5,"rest_of_day":true})", GoQuietArguments::RestOfDay{}, "Quiet for the rest of today.", newYork.nextHour(0, 4)},
      {R"({"rest_of_day":"true"})", GoQuietArguments::RestOfDay{}, "Quiet for the rest of today.", newYork.nextHour(0, 4)},
      {R"({"minutes":5,"rest_of_day":false})", GoQuietArguments::Minutes{5, 5}, "Quiet for 5 minutes.", 300'000}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.arguments);
    const auto parsed = GoQuietArguments::parse(*JSONValue::parse(c.arguments));
    EXPECT_EQ(parsed, c.want);
    EXPECT_EQ(GoQuietArguments::resultText(parsed), c.answer);
    const auto made = GoQuietArguments::requestedEvent(parsed, "exam", 0, newYork);
    ASSERT_TRUE(made);
    const auto window = UserQuietWindow::latest(std::span(&*made, 1), 0);
    ASSERT_TRUE(window);
    EXPECT_EQ(window->untilMs, c.untilMs);
    EXPECT_EQ(window->reason, "exam");
  }
  for (const auto* malformed : {"{}", "[]", "null", R"({"minutes":0})", R"({"minutes":-5})", R"({"minutes":"30"})", R"({"minutes":true})",
                                R"({"rest_of_day":1})", R"({"rest_of_day":"yes"})"}) {
    SCOPED_TRACE(malformed);
    const auto parsed = GoQuietArguments::parse(*JSONValue::parse(malformed));
    EXPECT_EQ(parsed, GoQuietArguments::Parsed(GoQuietArguments::Malformed{}));
    EXPECT_FALSE(GoQuietArguments::requestedEvent(parsed, {}, 0, newYork));
    EXPECT_EQ(GoQuietArguments::resultText(parsed),
              "Not applied — no usable `minutes` (5-1440) or `rest_of_day` was given, so no quiet window exists.");
  }
  const auto byTool = GoQuietArguments::requestedEvent(GoQuietArguments::Minutes{2, 5}, {}, 0, newYork);
  EXPECT_EQ(byTool->detail.dump(), R"({"quiet_until_ts_ms":300000,"user_quiet_applied_minutes":5,"user_quiet_requested_minutes":2,)"
                                   R"("user_quiet_until_ts_ms":300000})");
}

TEST(DoNotDisturbWindow, latest) {
  const auto begun = event(10, "do_not_disturb", {{"until_ts_ms", 100}, {"expectation", "  \n"}});
  const auto ended = [](std::int64_t ms, std::int64_t start, const char* reason) {
    return event(ms, "do_not_disturb_ended", {{"window_start_ts_ms", start}, {"reason", reason}});
  };
  const struct { const char* name; std::vector<EventLogEvent> events; std::int64_t endMs; } cases[] = {
      {"its timer", {begun}, 100},
      {"broken", {begun, ended(40, 10, "pattern_broke"), ended(60, 10, "break_taken")}, 40},
      {"the timer's own end is not early", {begun, ended(103, 10, "expired")}, 100},
      {"another window's end", {begun, ended(40, 9, "break_taken")}, 100}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const auto window = DoNotDisturbWindow::latest(c.events, 200);
    ASSERT_TRUE(window);
    EXPECT_TRUE(window->isBlind()) << "an expectation of white space is none";
    EXPECT_EQ(window->effectiveEndMs(), c.endMs);
    EXPECT_TRUE(window->isActive(c.endMs - 1));
    EXPECT_FALSE(window->isActive(c.endMs));
  }
  EXPECT_FALSE(DoNotDisturbWindow::latest(std::vector{begun}, 9));
}

ClassifierTick tickAt(std::int64_t ms, const char* state) { return {.at = ISO8601::utcMillis(ms), .state = state, .reason = "tea"}; }

TEST(DoNotDisturbSupervisor, order) {
  using namespace DoNotDisturbSupervisor;
  constexpr std::int64_t start = 1'000'000, now = start + 600'000, until = start + 3'600'000;
  const auto window = [](std::optional<std::string> expectation) {
    return DoNotDisturbEvent::make({.minutes = 60, .expectation = std::move(expectation), .asOfMs = start});
  };
  const auto open = window("more cats"), blind = window(" \n");
  const auto expired = DoNotDisturbEndedEvent::make({.windowStartMs = start, .reason = DoNotDisturbEndReason::breakTaken, .asOfMs = now});
  const auto drift = tickAt(now, "NOT_ALIGNED"), rest = tickAt(start, "BREAK");
  const struct {
    const char* name;
    std::vector<EventLogEvent> events;
    std::vector<ClassifierTick> ticks;
    std::optional<std::int64_t> lastCheckMs;
    Action want;
  } cases[] = {{"no window", {}, {drift}, {}, Idle{}},
               {"ended at this moment", {open, expired}, {rest}, {}, Idle{}},
               {"a break at its start, before any check", {open}, {rest, drift}, {}, EndNow{DoNotDisturbEndReason::breakTaken, "tea"}},
               {"a break before it", {open}, {tickAt(start - 1, "BREAK")}, {}, Holding{until}},
               {"a break still to come", {open}, {tickAt(now + 1, "BREAK")}, {}, Holding{until}},
               {"something to compare", {open}, {drift}, {}, RunPatternCheck{}},
               {"nothing to compare", {open}, {}, {}, Holding{until}},
               {"blind, with ticks in it", {blind}, {drift}, {}, Holding{until}},
               {"checked just now", {open}, {drift}, now - patternCheckMinIntervalMs + 1, Holding{until}},
               {"checked long enough ago", {open}, {drift}, now - patternCheckMinIntervalMs, RunPatternCheck{}}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(evaluate({.events = c.events, .ticks = c.ticks, .asOfMs = now, .lastPatternCheckMs = c.lastCheckMs}), c.want);
  }
}

TEST(CoachProjection, quietNotices) {
  const auto start = newYork.instant(2026, 3, 4, 15), later = start + 30 * 60'000;
  const auto begun = [](std::int64_t ms, std::optional<std::string> expectation) {
    return DoNotDisturbEvent::make({.minutes = 20, .expectation = std::move(expectation), .asOfMs = ms});
  };
  const auto ended = [&](DoNotDisturbEndReason reason) {
    return DoNotDisturbEndedEvent::make({.windowStartMs = start, .reason = reason, .asOfMs = start + 60'000});
  };
  const std::string piled = " Everything below piled up while you were quiet — it is one situation you are seeing for the first time, not a "
                            "list of things you failed to answer.";
  const auto timer = start + 20 * 60'000;
  using Notices = std::vector<CoachProjection::Notice>;
  const struct { const char* name; std::vector<EventLogEvent> events; Notices want; } cases[] = {
      {"a break", {begun(start, "x"), ended(DoNotDisturbEndReason::breakTaken)},
       {{start + 60'000, "notice: you asked to hold messages at 15:00; they took a break, so the window ended early." + piled}}},
      {"another pattern", {begun(start, "more \"cats\""), ended(DoNotDisturbEndReason::patternBroke)},
       {{start + 60'000, "notice: you asked to hold messages at 15:00, expecting \"more ʺcatsʺ\", and what they're doing stopped matching "
                         "that, so the window ended early." + piled}}},
      {"its timer", {begun(start, "x"), ended(DoNotDisturbEndReason::expired)},
       {{timer, "notice: you asked to hold messages at 15:00; the window ran out." + piled}}},
      {"its timer, blind", {begun(start, {})},
       {{timer, "notice: you asked to hold messages at 15:00; the window ran out." + piled +
                    " You gave no expectation when you asked, so nothing could end this early — only the timer could."}}},
      {"taken over by a newer one that still holds", {begun(start, "x"), begun(start + 15 * 60'000, "y")}, {}}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(CoachProjection::quietNotices(c.events, later, newYork), c.want);
  }
}

}  // namespace
}  // namespace halvo
