#include <gtest/gtest.h>

#include "AmbitudeCore/Gate/CoachGateMessage.h"
#include "AmbitudeCore/Gate/CoachGateQuestion.h"
#include "AmbitudeCore/Gate/CoachGateRules.h"
#include "AmbitudeCore/Gate/CoachGateSchema.h"
#include "AmbitudeCore/Gate/CoachGateSessionID.h"
#include "AmbitudeCore/Gate/GateStandingNotes.h"
#include "CaptureShared/Foundation/Digest.h"
#include "tests/AmbitudeCore/Gate/GateScene.h"

namespace halvo {
namespace {

// The digests were taken of the texts' source, outside this program. A text that changes changes what the gate was measured with, and every
// session id: change it on purpose or not at all.
TEST(CoachGateTexts, standLetterByLetter) {
  const struct { const char* name; std::string_view text; const char* sha256; } cases[] = {
      {"rules", CoachGateRules::text, "25a9ee1afe6eaeca2c25fb6cf19e15d8756cccf299953d68e01bfa5a8edc5b89"},
      {"low-effort note", CoachGateRules::lowEffortNote, "eea65313966b7d3f3dbf82332031a48ba74e77d6425b54133a5598beec884848"},
      {"plain prefix", CoachGateRules::prefix(false), "25a9ee1afe6eaeca2c25fb6cf19e15d8756cccf299953d68e01bfa5a8edc5b89"},
      {"low-effort prefix", CoachGateRules::prefix(true), "edeb9471df09e13745530f7233fcce6d6358bdbe9b6bbaf370cb3e0af8f1963e"},
      {"question", CoachGateQuestion::text(), "9fb97a1a3006c907288cdc6a709bdad86358e261eced50b8e941e884130a2606"},
      {"schema", CoachGateSchema::schemaJSON(), "5f4257d5c3ac5a5552ec808aa56d46a9b9feaaa960488dc820c104aaf1628e11"}};
  for (const auto& c : cases) EXPECT_EQ(Digest::sha256Hex(c.text), c.sha256) << c.name;
}

TEST(CoachGateMessage, order) {
  using namespace GateScene;
  const std::string rules = CoachGateRules::prefix(false);
  const CoachGateTimeline::Scene empty{.nowMs = at(9, 5), .calendar = calendar};
  EXPECT_EQ(CoachGateMessage::build({.scene = empty}),
            rules + "\n\nTimeline:\n(nothing has happened yet)\nit is now 9:05.\n\n" + CoachGateQuestion::text());
  const std::vector events{event(at(9, 0), "task_cleared")};
  EXPECT_EQ(CoachGateMessage::build({.scene = {.events = events, .nowMs = at(9, 5), .calendar = calendar},
                                     .lowEffort = true, .standingNotes = "NOTES", .userInstructions = "MINE", .medsContext = "MEDS"}),
            rules + "\n\n" + std::string(CoachGateRules::lowEffortNote) +
                "\n\nMINE\n\nNOTES\n\nTimeline:\nat 9:00 they cleared their declared task\nit is now 9:05.\n\nMEDS\n\n" +
                CoachGateQuestion::text());
}

TEST(GateStandingNotes, render) {
  using Scope = CoachCorrection::Scope;
  const std::vector<CoachCorrection> corrections{{.atMs = 3, .text = "later"},
                                                 {.atMs = 1, .text = "not before\nnoon", .scope = Scope::whetherToSpeak},
                                                 {.atMs = 2, .text = "folded", .foldedAtMs = 9},
                                                 {.atMs = 4, .text = "no jokes", .scope = Scope::whatToSay}};
  const StandingMemory memory{.lessons = {"dislikes mornings"}, .facts = {{.text = "studies history"}, {.text = " "}}};
  EXPECT_EQ(GateStandingNotes::render(memory, corrections, Scope::whetherToSpeak),
            "What you have been told before, and still applies:\n- studies history\n- dislikes mornings\n"
            "- not before noon (they told you this directly)\n- later (they told you this directly)");
  EXPECT_EQ(GateStandingNotes::render({}, {}, Scope::whatToSay), std::nullopt);
  EXPECT_EQ(GateStandingNotes::render(StandingMemory{}, std::vector{corrections[2]}, Scope::whatToSay), std::nullopt);
}

TEST(CoachGateSessionID, changesWithTextAndGenerationOnly) {
  using CoachGateSessionID::value;
  EXPECT_EQ(value(false, 0), Digest::sha256Hex(CoachGateRules::text).substr(0, 32));
  EXPECT_EQ(value(false, 2), Digest::sha256Hex(std::string(CoachGateRules::text) + "\n[provider-routing-generation 2]").substr(0, 32));
  EXPECT_NE(value(true, 0), value(false, 0));
  EXPECT_EQ(value(), value(false));
}

}  // namespace
}  // namespace halvo
