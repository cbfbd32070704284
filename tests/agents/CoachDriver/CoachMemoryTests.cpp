// What was learned of earlier days reaches the gate and the coach, and what was to be forgotten doesn't.

#include <gtest/gtest.h>

#include "AmbitudeCore/Memory/MemoryStore.h"
#include "AmbitudeCore/Memory/MemoryWipeLog.h"
#include "tests/agents/CoachDriver/CoachScene.h"

namespace halvo {
namespace {

using test::CoachScene;

TEST(CoachMemory, reachesBothAndEndsWithAWipe) {
  for (const bool isEnabled : {true, false}) {
    SCOPED_TRACE(isEnabled);
    CoachScene scene;
    scene.folder.write("data/coach-preferences.json", JSONValue(JSONObject{{"standingMemoryEnabled", isEnabled}}).dump());
    MemoryStore::writeStanding(
        {.regeneratedAtTsMs = scene.nowMs - 10'000, .lessons = {"short words help"}, .facts = {{.text = "Blender is for film"}}},
        scene.root);
    scene.add(GateScene::event(scene.nowMs - 20'000, "coach_correction_recorded", {{"text", "no jokes"}}));
    scene.tick();
    CoachDriverLoop loop(scene.surroundings());
    const auto texts = [&] {
      scene.add(GateScene::said(scene.nowMs, "user", "hello?"));
      loop.wake({});
      return scene.backend.calls().back().messages.front().content;
    };
    loop.wake({});
    ASSERT_EQ(scene.calls(), 2u) << "the gate, then the coach";
    const std::string learned = "What you have been told before, and still applies:\n- Blender is for film\n- short words help\n- no jokes";
    for (const auto& call : scene.backend.calls())
      EXPECT_EQ(call.messages.front().content.find(learned) != std::string::npos, isEnabled) << call.messages.front().content;
    EXPECT_NE(texts().find("- no jokes (they told you this directly)"), std::string::npos);
    MemoryWipeLog::request(scene.nowMs, MemoryWipeLog::defaultURL(scene.root));
    scene.nowMs += 1000;
    EXPECT_EQ(texts().find("What you have been told before"), std::string::npos);
  }
}

TEST(CoachMemory, goesToARemoteCoachWithoutItsNumbers) {
  CoachScene scene;
  scene.folder.write("data/coach-preferences.json", JSONValue(JSONObject{{"coachInstructions", "my card is 4111 1111 1111 1111"}}).dump());
  MemoryStore::writeStanding({.regeneratedAtTsMs = scene.nowMs - 10'000, .facts = {{.text = "pays with 4111 1111 1111 1111"}}}, scene.root);
  scene.add(GateScene::said(scene.nowMs, "user", "hello?"));
  auto surroundings = scene.surroundings();
  surroundings.coachPrimaryIsLocal = false;
  CoachDriverLoop(surroundings).wake({});
  ASSERT_EQ(scene.calls(), 1u);
  const auto system = scene.backend.calls()[0].messages.front().content;
  EXPECT_NE(system.find("- pays with [redacted card number]"), std::string::npos) << system;
  EXPECT_EQ(system.find("4111"), std::string::npos);
}

}  // namespace
}  // namespace halvo
