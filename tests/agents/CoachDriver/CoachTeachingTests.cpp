// Quiet, corrections and the service's trouble, through the driver's loop.

#include <gtest/gtest.h>

#include "AmbitudeCore/Backends/ModelBackendError.h"
#include "AmbitudeCore/Folds/CoachCorrectionsLog.h"
#include "AmbitudeCore/Folds/DoNotDisturbWindow.h"
#include "tests/agents/CoachDriver/CoachScene.h"

namespace halvo {
namespace {

using test::CoachScene;

TEST(CoachTeaching, aCorrectionIsKeptReadAndDeletable) {
  CoachScene scene;
  const auto url = CoachCorrectionsLog::defaultURL(scene.root);
  scene.add(GateScene::event(scene.nowMs - 20'000, "coach_correction_recorded", {{"text", "no jokes"}}));
  CoachDriverLoop loop(scene.surroundings());
  const auto prompt = [&] {
    scene.nowMs += 1000;
    scene.add(GateScene::said(scene.nowMs, "user", "please"));
    loop.wake({});
    return scene.backend.calls().back().messages.front().content;
  };
  scene.coachCalls = {{"remember_correction", JSONObject{{"correction", "short words"}, {"lasts", "until_changed"}}}};
  EXPECT_NE(prompt().find("- no jokes (they told you this directly)"), std::string::npos) << "from the log, without a file";
  scene.coachCalls.clear();
  ASSERT_EQ(CoachCorrectionsLog::readAll(url).size(), 2u) << "the new one, and what the log held";
  EXPECT_NE(prompt().find("- short words (they told you this directly)"), std::string::npos);
  EXPECT_TRUE(CoachCorrectionsLog::erase(CoachCorrectionsLog::readAll(url)[0].atMs, url));
  EXPECT_EQ(prompt().find("no jokes"), std::string::npos) << "deleted, though it stands in the log";
}

TEST(CoachTeaching, whatCanNotBeKeptIsToldToTheCoach) {
  CoachScene scene;
  std::filesystem::create_directory(CoachCorrectionsLog::defaultURL(scene.root).string() + ".lock");
  scene.coachCalls = {{"remember_correction", JSONObject{{"correction", "short words"}, {"lasts", "until_changed"}}}};
  scene.add(GateScene::said(scene.nowMs, "user", "please"));
  CoachDriverLoop(scene.surroundings()).wake({});
  EXPECT_EQ(scene.count("coach_correction_recorded"), 0);
  EXPECT_EQ(scene.count("tool_call_dropped"), 1);
  EXPECT_EQ(scene.coachMessages(), 1);
  for (const auto& event : scene.events())
    if (event.type == "coach_decision") {
      EXPECT_TRUE(event.detail.at({"tool_results", "0", "text"})->stringValue()->starts_with("Not recorded — "));
    }
}

TEST(CoachTeaching, theServicesTroubleIsOneEventAndSoIsItsEnd) {
  CoachScene scene;
  bool isDown = true;
  const auto answer = scene.backend.answer;
  scene.backend.answer = [&](const auto& call, const auto& stop) {
    if (isDown) throw ModelBackendError::httpError(503, "busy");
    return answer(call, stop);
  };
  scene.add(GateScene::said(scene.nowMs, "user", "hello?"));
  CoachDriverLoop loop(scene.surroundings());
  for (int i = 0; i < 7; ++i, scene.nowMs += 700'000) loop.wake({});
  EXPECT_EQ(scene.count("coach_service_problem"), 1);
  isDown = false;
  CoachDriverLoop restarted(scene.surroundings());
  restarted.wake({});
  EXPECT_EQ(scene.coachMessages(), 1);
  EXPECT_EQ(scene.count("coach_service_restored"), 1);
}

TEST(CoachTeaching, theCoachsOwnWindowEndsOnce) {
  for (const auto* state : {"BREAK", "NOT_ALIGNED", "ON_TASK"}) {
    SCOPED_TRACE(state);
    CoachScene scene;
    const auto answer = scene.backend.answer;
    scene.backend.answer = [&](const test::ScriptedBackend::Call& call, const std::stop_token& stop) {
      const bool isCheck = call.messages.back().content.starts_with("Prediction: ");
      return isCheck ? ChatResponse{.text = state == std::string("NOT_ALIGNED") ? "CHANGED\nGames now." : "SAME"} : answer(call, stop);
    };
    scene.add(DoNotDisturbEvent::make({.minutes = 20, .expectation = "the essay", .asOfMs = scene.nowMs - 1000}));
    scene.tick(state), scene.tick(state);
    CoachDriverLoop loop(scene.surroundings());
    for (int i = 0; i < 3; ++i, scene.nowMs += 15 * 60'000) scene.tick("ON_TASK"), loop.wake({});
    ASSERT_EQ(scene.count("do_not_disturb_ended"), 1);
    for (const auto& event : scene.events())
      if (event.type == "do_not_disturb_ended") {
        EXPECT_EQ(*event.text("reason"), state == std::string("BREAK") ? "break_taken" : state == std::string("ON_TASK") ? "expired" : "pattern_broke");
      }
  }
}

}  // namespace
}  // namespace halvo
