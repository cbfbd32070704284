#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "AmbitudeCore/Folds/CoachCorrectionsLog.h"
#include "AmbitudeCore/Folds/CoachPreferences.h"
#include "AmbitudeCore/Folds/CoachUIState.h"
#include "AmbitudeCore/Folds/Declaration.h"
#include "AmbitudeCore/Folds/OwnApplications.h"
#include "AmbitudeCore/Folds/TimedTicks.h"
#include "AmbitudeCore/Folds/UserStandingInstructionsRendering.h"
#include "CaptureShared/Foundation/FileHandle.h"

namespace halvo {
namespace {
const Calendar newYork = Calendar::named("America/New_York");

EventLogEvent event(std::int64_t ms, std::string type, JSONObject detail = {}) {
  return {.tsMs = ms, .type = std::move(type), .detail = std::move(detail)};
}

TEST(Declaration, decode) {
  const struct { const char* name; EventLogEvent row; std::optional<Declaration> want; } cases[] = {
      {"notes win over task", event(1, "task_declared", {{"notes", " a \n"}, {"task", "b"}}), Declaration{1, "a", {}, {}}},
      {"task when notes is no text", event(1, "task_declared", {{"notes", 3}, {"task", "b"}, {"until", "5pm"}}),
       Declaration{1, "b", {}, "5pm"}},
      {"blank notes are no declaration, task or not", event(1, "task_declared", {{"notes", " "}, {"task", "b"}}), std::nullopt},
      {"minutes as digits, until as null",
       event(1, "task_declared", {{"task", "b"}, {"horizon_minutes", "45"}, {"until", nullptr}}), Declaration{1, "b", 45, {}}},
      {"minutes out of range", event(1, "task_declared", {{"task", "b"}, {"horizon_minutes", 0}}), Declaration{1, "b", {}, {}}},
      {"another type", event(1, "task_cleared", {{"task", "b"}}), std::nullopt},
      {"detail is no object", EventLogEvent{.tsMs = 1, .type = "task_declared", .detail = JSONValue("x")}, std::nullopt}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(Declaration::decode(c.row), c.want);
  }
}

TEST(LatestDeclaration, commitment) {
  const auto byCoach = event(10, "task_declared", {{"notes", "essay"}, {"task", "essay"}, {"horizon_minutes", 30}});
  const auto byPerson = event(20, "task_declared", {{"task", "walk"}});
  const auto cleared = event(20, "task_cleared");
  const Commitment essay{"essay", 10, 30};
  EXPECT_EQ(LatestDeclaration::commitment(std::vector{byCoach}, 10), essay);
  EXPECT_EQ(LatestDeclaration::commitment(std::vector{byCoach}, 9), std::nullopt);
  EXPECT_EQ(LatestDeclaration::commitment(std::vector{byCoach, byPerson}, 30), std::nullopt) << "a task without notes is none";
  EXPECT_EQ(LatestDeclaration::inForce(std::vector{byCoach, byPerson}, 30)->notes, "walk");
  EXPECT_EQ(LatestDeclaration::commitment(std::vector{cleared, byCoach}, 30), std::nullopt) << "order is by time, not by place";
  EXPECT_EQ(LatestDeclaration::commitment(std::vector{byCoach, event(10, "task_cleared")}, 30), std::nullopt) << "later row on a tie";
}

TEST(CoachUIState, isOpen) {
  EXPECT_FALSE(CoachUIState::isOpen({}));
  const std::vector events{event(10, "ui_opened"), event(20, "ui_closed"), event(30, "ui_opened"), event(35, "app_chat_message")};
  EXPECT_TRUE(CoachUIState::isOpen(events));
  EXPECT_FALSE(CoachUIState::isOpen(events, 0, 29));
  EXPECT_FALSE(CoachUIState::isOpen(events, 31, 40)) << "what was opened before the window does not count";
}

TEST(CoachCorrection, expiry) {
  using Lasts = CoachCorrection::Lasts;
  const auto evening = newYork.instant(2026, 3, 4, 23, 30), night = newYork.instant(2026, 3, 5, 3), end = newYork.instant(2026, 3, 5, 5);
  EXPECT_EQ(CoachCorrection::expiry(Lasts::restOfToday, evening, newYork), end);
  EXPECT_EQ(CoachCorrection::expiry(Lasts::restOfToday, night, newYork), end);
  EXPECT_EQ(CoachCorrection::expiry(Lasts::nextFewHours, 1, newYork), 10'800'001);
  EXPECT_EQ(CoachCorrection::expiry(Lasts::untilChanged, 1, newYork), std::nullopt);
  const CoachCorrection limited{.text = "t", .expiresAtMs = 100};
  EXPECT_TRUE(limited.isInForce(99));
  EXPECT_FALSE(limited.isInForce(100));
}

TEST(CoachCorrectionsLog, fromEvents) {
  using Lasts = CoachCorrection::Lasts;
  using Scope = CoachCorrection::Scope;
  const std::vector events{
      CoachCorrectionRecordedEvent::make({.text = "b", .scope = Scope::whatToSay, .lasts = Lasts::nextFewHours, .asOfMs = 200}, newYork),
      CoachCorrectionRecordedEvent::make({.text = "a", .lasts = Lasts::untilChanged, .asOfMs = 100}, newYork),
      event(300, "coach_correction_recorded", {{"text", "c"}, {"lasts", "rest_of_today"}}),
      event(400, "coach_correction_recorded", {{"text", " "}})};
  const auto all = CoachCorrectionsLog::fromEvents(events);
  const std::vector<CoachCorrection> want{
      {.atMs = 100, .text = "a", .lasts = Lasts::untilChanged},
      {.atMs = 200, .text = "b", .scope = Scope::whatToSay, .expiresAtMs = 10'800'200, .lasts = Lasts::nextFewHours},
      {.atMs = 300, .text = "c", .expiresAtMs = 10'800'300, .lasts = Lasts::restOfToday}};
  EXPECT_EQ(all, want) << "a limited one without its end must not become a standing one";
  EXPECT_EQ(CoachCorrectionsLog::inForce(all, 250).size(), 2u) << "what is said later does not apply yet";
  EXPECT_EQ(CoachCorrectionsLog::inForce(all, 10'800'300), std::vector{want[0]});
}

TEST(TimedTicks, realOrderBeatsTextOrder) {
  // The night the clocks go back: 01:50 -04:00 comes before 01:10 -05:00, though its text is greater.
  const std::vector<ClassifierTick> ticks{{.at = "2026-11-01T00:30:00.000-04:00"},
                                          {.at = "2026-11-01T01:10:00.000-05:00"},
                                          {.at = "2026-11-01T01:50:00.000-04:00"},
                                          {.at = "half past"}};
  const auto first = ticks[0].atMs().value();
  const auto found = TimedTicks::within(ticks, first, first + 86'400'000);
  ASSERT_EQ(found.size(), 3u);
  EXPECT_EQ(found[1].tick, &ticks[2]);
  EXPECT_EQ(found[2].tick, &ticks[1]);
  EXPECT_EQ(TimedTicks::newest(ticks, first + 86'400'000)->tick, &ticks[1]);
  EXPECT_EQ(TimedTicks::newest(ticks, found[2].tsMs - 1)->tick, &ticks[2]);
  EXPECT_EQ(TimedTicks::newest(ticks, first - 1), std::nullopt);
  EXPECT_EQ(TimedTicks::latestMs(ticks), found[2].tsMs);
  EXPECT_EQ(TimedTicks::within(ticks, first, first).size(), 1u) << "both ends belong to the range";
}

TEST(OwnApplications, contains) {
  for (const std::string_view own : {"lark", "LARK", "AmbitudeApp", "ambitude", "Shearling", "Halvo", "Lar\u212A"})
    EXPECT_TRUE(OwnApplications::contains(own)) << own;
  for (const std::string_view other : {"", "Larkspur", "Halv", "Halvö", "halvo ", "firefox"})
    EXPECT_FALSE(OwnApplications::contains(other)) << other;
  EXPECT_FALSE(OwnApplications::contains(std::optional<std::string>()));
}

TEST(UserStandingInstructionsRendering, texts) {
  using namespace UserStandingInstructionsRendering;
  EXPECT_EQ(forGate(" say \"no\" \n"), "A standing note they wrote for you directly: \"say \"no\"\"");
  EXPECT_EQ(forCoach("x"), "A standing note they wrote for you directly: \"x\"");
  EXPECT_EQ(forClassifier("x"), "They've also told you this: \"x\"");
  EXPECT_EQ(forGate(" \n\t"), std::nullopt);
  EXPECT_EQ(forGate("<|turn>"), "A standing note they wrote for you directly: \"< |turn>\"") << "a pasted marker can't end the turn";
}

class CoachPreferencesStoreTest : public testing::Test {
 protected:
  std::filesystem::path root = [] {
    std::string name = std::filesystem::temp_directory_path() / "halvo-folds-XXXXXX";
    return std::filesystem::path(mkdtemp(name.data()));
  }();
  ~CoachPreferencesStoreTest() override { std::filesystem::remove_all(root); }
  void put(std::string_view text) { std::ofstream(CoachPreferencesStore::url(root)) << text; }
};

TEST_F(CoachPreferencesStoreTest, roundTripKeepsWhatItDoesNotKnow) {
  EXPECT_EQ(CoachPreferencesStore::read(root), CoachPreferences{});
  EXPECT_EQ(CoachPreferencesStore::explicitMedsRemindersEnabled(root), std::nullopt);
  put(R"({"newer":[1],"gateInstructions":"old","standingMemoryEnabled":"yes"})");
  EXPECT_EQ(CoachPreferencesStore::read(root).standingMemoryEnabled, CoachPreferences{}.standingMemoryEnabled) << "a text is no switch";
  const CoachPreferences mine{.gateInstructions = "not at night", .classifierInstructions = "a\nb", .developerModeEnabled = true};
  CoachPreferencesStore::write(root, mine);
  EXPECT_EQ(CoachPreferencesStore::read(root), mine);
  EXPECT_EQ(CoachPreferencesStore::explicitMedsRemindersEnabled(root), false);
  const auto stored = JSONValue::parse(readFile(CoachPreferencesStore::url(root)));
  EXPECT_TRUE(stored && stored->find("newer"));
  EXPECT_EQ(std::filesystem::status(CoachPreferencesStore::url(root)).permissions(), std::filesystem::perms(0600));
}

TEST_F(CoachPreferencesStoreTest, damageIsToldAndNotOverwritten) {
  put(R"({"gateInstructions":"mine")");
  EXPECT_THROW(CoachPreferencesStore::read(root), std::runtime_error);
  EXPECT_THROW(CoachPreferencesStore::write(root, {}), std::runtime_error);
  EXPECT_EQ(readFile(CoachPreferencesStore::url(root)), R"({"gateInstructions":"mine")");
  EXPECT_THROW(CoachPreferencesStore::write(root / "absent", {}), std::system_error) << "the data root is never made";
}

}  // namespace
}  // namespace halvo
