#include <gtest/gtest.h>

#include <limits>

#include "CaptureShared/Foundation/JSONValue.h"
#include "CaptureShared/Records/ClassifierTick.h"
#include "CaptureShared/Records/CoachCorrection.h"
#include "CaptureShared/Records/TaskMinutes.h"

namespace halvo {
namespace {

TEST(ClassifierTick, comesBackFromItsLine) {
  const ClassifierTick full{.at = "2026-03-04T09:15:00.250-05:00",
                            .state = "NOT_ALIGNED",
                            .frontmostApp = "Firefox",
                            .frontmostWindowTitle = "a \"quoted\" title",
                            .browserTitle = "tab",
                            .reason = "a\nb",
                            .confidence = 0.875,
                            .declaredTask = "Task: essay\n",
                            .model = "m",
                            .screenshotAtMs = 1'772'633'700'123,
                            .reasonCheck = "passed",
                            .contentWithheldForDenylist = "frontmost_denylisted"};
  for (const auto& tick : {full, ClassifierTick{.at = "x"}}) {
    const auto line = tick.encode();
    EXPECT_EQ(line.find('\n'), std::string::npos);
    EXPECT_EQ(ClassifierTick::decode(line), tick);
  }
  EXPECT_EQ(full.atMs(), 1'772'633'700'250);
  EXPECT_THROW((ClassifierTick{.at = "x", .reason = "\xff"}.encode()), JSONEncodingError);
}

TEST(ClassifierTick, aFieldOfTheWrongTypeIsAbsentAndARowWithoutATimeIsNone) {
  EXPECT_EQ(
      ClassifierTick::decode(R"({"at":"t","state":1,"confidence":"high","screenshot_at_ms":true,"reason":null,"new_key":{"at":"inner"}})"),
      ClassifierTick{.at = "t"});
  EXPECT_EQ(ClassifierTick::decode(R"({"at":"t","confidence":1})")->confidence, 1.0);
  for (const char* line : {"", "[]", R"({"at":5})", R"({"state":"IDLE"})", R"({"at":"t")", "\xff"})
    EXPECT_FALSE(ClassifierTick::decode(line)) << line;
}

TEST(CoachCorrection, lastsUntilItsExpiry) {
  const auto newYork = Calendar::named("America/New_York");
  const auto lateEvening = newYork.instant(2026, 3, 7, 23), night = newYork.instant(2026, 3, 7, 4, 59);
  EXPECT_EQ(CoachCorrection::expiry(CoachCorrection::Lasts::restOfToday, lateEvening, newYork), newYork.instant(2026, 3, 8, 5));
  EXPECT_EQ(CoachCorrection::expiry(CoachCorrection::Lasts::restOfToday, night, newYork), night + 60'000);
  EXPECT_EQ(CoachCorrection::expiry(CoachCorrection::Lasts::nextFewHours, 1000, newYork), 10'801'000);
  EXPECT_EQ(CoachCorrection::expiry(CoachCorrection::Lasts::untilChanged, 1000, newYork), std::nullopt);
  EXPECT_TRUE(CoachCorrection{.expiresAtMs = 10}.isInForce(9));
  EXPECT_FALSE(CoachCorrection{.expiresAtMs = 10}.isInForce(10));
}

TEST(TaskMinutes, takesWholeMinutesOfUpToAWeek) {
  const struct { JSONValue value; std::optional<int> minutes; } cases[] = {
      {1, 1},
      {0.99, {}},
      {45.9, 45},
      {10'080, 10'080},
      {10'081, {}},
      {-5, {}},
      {true, {}},
      {" 30 ", 30},
      {"+30", {}},
      {"30.5", {}},
      {"30 min", {}},
      {"", {}},
      {nullptr, {}},
      {"99999999999999999999", {}},
      {std::numeric_limits<double>::infinity(), {}}};
  for (const auto& c : cases) EXPECT_EQ(cleanTaskMinutes(&c.value), c.minutes);
  EXPECT_EQ(cleanTaskMinutes(nullptr), std::nullopt);
}

}  // namespace
}  // namespace halvo
