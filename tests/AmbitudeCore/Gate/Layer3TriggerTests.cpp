#include <gtest/gtest.h>

#include "AmbitudeCore/Folds/UserQuietWindow.h"
#include "AmbitudeCore/Gate/CheckinEvents.h"
#include "AmbitudeCore/Gate/Layer3Flag.h"
#include "AmbitudeCore/Gate/Layer3Trigger.h"
#include "tests/AmbitudeCore/Gate/GateScene.h"

namespace halvo::Layer3Trigger {
namespace {
using namespace GateScene;
using Events = std::vector<EventLogEvent>;
using Ticks = std::vector<ClassifierTick>;

struct Case {
  const char* name;
  Outcome want;
  Events events;
  Ticks ticks = {};
  CallHoldControl callHold = {};
};

/// Each case is looked at as of 15:00, with the floor at 12:00.
void check(const std::vector<Case>& cases) {
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(evaluate({.events = c.events, .ticks = c.ticks, .floorMs = at(12, 0), .asOfMs = at(15, 0), .callHold = c.callHold}), c.want);
  }
}

EventLogEvent quietUntil(std::int64_t ms, std::int64_t until) {
  return UserQuietRequestedEvent::make({.untilMs = until, .reason = "exam", .asOfMs = ms});
}

TEST(Layer3Trigger, whoeverWaitsOutranksEveryHold) {
  const auto setup = [](std::int64_t ms) { return event(ms, "onboarding_v3_setup_finished"); };
  const auto request = [](std::int64_t ms) { return *DeveloperCheckinTrigger::make(true, ms); };
  check({{"nothing at all", ConsultGate{}, {}},
         {"a waiting user, through quiet, call and close", OpenAwaitingReply{},
          {quietUntil(at(14, 0), at(18, 0)), event(at(14, 30), "in_call_began"), event(at(14, 40), "ui_opened"),
           said(at(14, 59), "user", "hi"), userClose(at(14, 59, 30))}},
         {"answered", ConsultGate{}, {said(at(13, 0), "user", "hi"), said(at(13, 1), "coach", "yes")}},
         {"said before the floor", ConsultGate{}, {said(at(11, 59), "user", "hi")}},
         {"said later than now", ConsultGate{}, {said(at(15, 1), "user", "hi")}},
         {"setup finished", OpenAwaitingSetupFinishedReply{}, {said(at(12, 30), "coach", "hello"), setup(at(12, 31))}},
         {"setup finished and spoken to", ConsultGate{}, {setup(at(12, 31)), said(at(12, 32), "coach", "hello")}},
         {"setup finished before they closed the popup", ConsultGate{}, {setup(at(12, 31)), userClose(at(12, 40))}},
         {"a developer's request, five minutes old", OpenDeveloperCheckinRequested{at(14, 55)}, {request(at(14, 55))}},
         {"older", ConsultGate{}, {request(at(14, 54, 59))}},
         {"it failed since", ConsultGate{}, {request(at(14, 58)), event(at(14, 59), "coach_turn_failed")}}});
  EXPECT_FALSE(DeveloperCheckinTrigger::make(false, 1));
}

TEST(Layer3Trigger, popupQuietAndClose) {
  const Events twoCloses{said(at(14, 0), "user", "hi"), said(at(14, 1), "coach", "yes"), userClose(at(14, 2)), checkin(at(14, 50)),
                         said(at(14, 50), "coach", "?"), userClose(at(14, 56))};
  check({{"popup in use", HoldForOpenPopup{}, {event(at(14, 50, 1), "ui_opened")}},
         {"open for ten minutes without use", ConsultGate{}, {event(at(14, 50), "ui_opened")}},
         {"opened long ago, spoken in lately", HoldForOpenPopup{}, {event(at(14, 0), "ui_opened"), said(at(14, 55), "coach", "hm")}},
         {"closed by the coach holds nothing", ConsultGate{},
          {event(at(14, 58), "ui_opened"), event(at(14, 59), "ui_closed", {{"dismissed_by", "coach"}})}},
         {"quiet", HoldForUserQuiet{at(18, 0), "exam"}, {quietUntil(at(14, 0), at(18, 0))}},
         {"quiet asked for before the floor", HoldForUserQuiet{at(18, 0), "exam"}, {quietUntil(at(11, 0), at(18, 0))}},
         {"quiet over this very moment", ConsultGate{}, {quietUntil(at(14, 0), at(15, 0))}},
         {"quiet cancelled", ConsultGate{}, {quietUntil(at(14, 0), at(18, 0)), UserQuietCancelledEvent::make(at(14, 0), at(14, 30))}},
         {"closed with nothing said: eight minutes", HoldForRecentClose{at(14, 53), at(15, 1), true}, {userClose(at(14, 53))}},
         {"they are over", ConsultGate{}, {userClose(at(14, 52))}},
         {"closed after talking: three minutes", HoldForRecentClose{at(14, 58), at(15, 1), false},
          {said(at(14, 56), "user", "hi"), said(at(14, 57), "coach", "yes"), userClose(at(14, 58))}},
         {"what they said before an earlier close does not count", HoldForRecentClose{at(14, 56), at(15, 4), true}, twoCloses},
         {"what they said since it does", HoldForRecentClose{at(14, 58), at(15, 1), false},
          {userClose(at(14, 40)), said(at(14, 50), "user", "hi"), said(at(14, 51), "coach", "yes"), userClose(at(14, 58))}},
         {"closes in a row are one gesture", HoldForRecentClose{at(14, 58), at(15, 1), false},
          {said(at(14, 50), "user", "hi"), said(at(14, 51), "coach", "yes"), userClose(at(14, 52)), userClose(at(14, 58))}},
         {"a message since", ConsultGate{}, {userClose(at(14, 58)), said(at(14, 59), "coach", "hm")}}});
}

TEST(Layer3Trigger, calls) {
  const auto began = [](int minute) { return event(at(14, minute), "in_call_began"); };
  const auto ended = [](int minute, const char* reason = "ended") { return event(at(14, minute), "in_call_ended", {{"reason", reason}}); };
  auto shotLate = tick(at(14, 55, 20), "ON_TASK"), shotBefore = tick(at(14, 56), "ON_TASK");
  shotLate.screenshotAtMs = at(14, 55, 1);
  shotBefore.screenshotAtMs = at(14, 54, 59);
  check({{"in a call, begun before the floor or not", HoldForCall{at(11, 0)}, {event(at(11, 0), "in_call_began")}},
         {"switched off", ConsultGate{}, {began(30)}, {}, {.enabled = false}},
         {"ended five minutes ago, one fresh frame", HoldAfterCall{at(14, 55), 1}, {began(30), ended(55)}, {shotLate, shotBefore}},
         {"a frame's age is guessed when it is not told", HoldAfterCall{at(14, 55), 1},
          {ended(55)}, {tick(at(14, 55, 15), "ON_TASK"), tick(at(14, 55, 16), "ON_TASK")}},
         {"two fresh frames", ConsultGate{}, {ended(55)}, {shotLate, tick(at(14, 55, 30), "ON_TASK")}},
         {"ten minutes ago, nothing seen since", ConsultGate{}, {ended(50)}},
         {"an unknown reason is an end", HoldAfterCall{at(14, 55), 0}, {ended(55, "?")}},
         {"ended by their own override", ConsultGate{}, {ended(55, "overridden")}},
         {"overridden for this call, nothing seen since", HoldAfterCall{at(14, 58), 0},
          {began(30)}, {shotLate}, {.override_ = CallHoldControl::Override{at(14, 30), at(14, 58)}}},
         {"overridden for this call, two frames since", ConsultGate{}, {began(30)},
          {tick(at(14, 58, 30), "ON_TASK"), tick(at(14, 59), "ON_TASK")}, {.override_ = CallHoldControl::Override{at(14, 30), at(14, 58)}}},
         {"overridden for another call", HoldForCall{at(14, 30)},
          {began(30)}, {}, {.override_ = CallHoldControl::Override{at(13, 30), at(13, 31)}}}});
}

TEST(Layer3Trigger, unansweredCheckin) {
  const auto drift = [](int minute, const char* app = "firefox", const char* state = "NOT_ALIGNED") {
    return tick(at(14, minute), state, app);
  };
  const Ticks same{drift(30), drift(35), drift(55), drift(59)};
  const auto with = [](Ticks ticks, std::initializer_list<ClassifierTick> more) { ticks.insert(ticks.end(), more); return ticks; };
  const std::string anchor = "NOT_ALIGNED in firefox";
  const Events asked{checkin(at(14, 40)), said(at(14, 40), "coach", "?")}, justAsked{checkin(at(14, 50)), said(at(14, 50), "coach", "?")};
  auto answered = asked;
  answered.insert(answered.end(), {said(at(14, 41), "user", "ok"), said(at(14, 42), "coach", "fine")});
  auto noApp = tick(at(14, 30), "NOT_ALIGNED"), noAppToo = tick(at(14, 31), "NOT_ALIGNED");
  noApp.frontmostApp = noAppToo.frontmostApp = std::nullopt;
  check({{"nothing has changed", HoldForUnansweredCheckin{at(14, 50), anchor}, justAsked, same},
         {"and the limit has passed", CheckinHoldExpired{at(14, 40), anchor, 900'000}, asked, same},
         {"past the limit, but nobody is there", HoldForUnansweredCheckin{at(14, 40), anchor},
          asked, with(same, {drift(59, "firefox", "idle")})},
         {"past the limit, but our own window is in front", HoldForUnansweredCheckin{at(14, 40), anchor},
          asked, with(same, {drift(59, "Lark")})},
         {"past the limit, but nothing was seen lately", HoldForUnansweredCheckin{at(14, 40), anchor},
          asked, {drift(30), drift(35), drift(49)}},
         {"they answered", ConsultGate{}, answered, same},
         {"another app for two samples", ConsultGate{}, justAsked, with(same, {drift(59, "steam"), drift(59, "steam")})},
         {"for one", HoldForUnansweredCheckin{at(14, 50), anchor}, justAsked, with(same, {drift(59, "steam")})},
         {"another state for two samples", ConsultGate{},
          justAsked, with(same, {drift(59, "firefox", "ON_TASK"), drift(59, "firefox", "ON_TASK")})},
         {"idle in between is no change", HoldForUnansweredCheckin{at(14, 50), anchor},
          justAsked, with(same, {drift(59, "firefox", "IDLE"), drift(59, "firefox", "IDLE")})},
         {"away to another app and back is the same", HoldForUnansweredCheckin{at(14, 50), anchor},
          justAsked, with({drift(30), drift(35), drift(52, "steam")}, {drift(55), drift(56)})},
         {"seen by nobody before it", HoldForUnansweredCheckin{at(14, 50), {}}, justAsked, {drift(55), drift(56)}},
         {"an unrecorded app", HoldForUnansweredCheckin{at(14, 50), "NOT_ALIGNED in an unrecorded app"}, justAsked, {noApp, noAppToo}}});
  const auto expiry = [](const char* text) { return unansweredCheckinExpiryMs({{"AMBITCAP_UNANSWERED_CHECKIN_HOLD_MAX_SEC", text}}); };
  EXPECT_EQ(expiry(" 60 "), 60'000);
  for (const auto* bad : {"0", "-1", "", "1m", "9223372036854775807"}) EXPECT_EQ(expiry(bad), 900'000) << bad;
}

TEST(Layer3Trigger, turnAndFlag) {
  EXPECT_EQ(turn(OpenAwaitingReply{}), ChatTurn::reply);
  EXPECT_EQ(turn(OpenAwaitingSetupFinishedReply{}), ChatTurn::reply);
  EXPECT_EQ(turn(OpenDeveloperCheckinRequested{}), ChatTurn::background);
  EXPECT_EQ(turn(ConsultGate{}), ChatTurn::background);
  EXPECT_TRUE(Layer3Flag::isArmed({{"AMBITCAP_LAYER3", "1"}}));
  EXPECT_FALSE(Layer3Flag::isArmed({{"AMBITCAP_LAYER3", "true"}}));
  EXPECT_EQ(Layer3CheckinEvent::make("s", 5), event(5, "coach_checkin", {{"summary_for_coach", "s"}}));
}

}  // namespace
}  // namespace halvo::Layer3Trigger
