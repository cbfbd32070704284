#include <gtest/gtest.h>

#include "AmbitudeCore/Gate/GateDecisionLog.h"
#include "AmbitudeCore/Gate/GateDecisionLogFlag.h"
#include "AmbitudeCore/Gate/GateFeedbackLadder.h"
#include "AmbitudeCore/Gate/GateGapAnalysis.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "tests/AmbitudeCore/Gate/GateScene.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {
using namespace GateScene;

struct GateDecisionLogTest : testing::Test {
  const test::TemporaryFolder folder;
  const std::filesystem::path url = GateDecisionLog::defaultURL(folder.path());
};

const std::vector<EventLogEvent> essay{event(at(14, 0), "task_declared", {{"notes", "essay"}, {"horizon_minutes", 30}})};

TEST_F(GateDecisionLogTest, recordTellsWhatWasKnown) {
  std::vector ticks{tick(at(14, 0), "IDLE"), tick(at(14, 10), "ON_TASK"), tick(at(14, 20), "ON_TASK", "Writer", "why"),
                    tick(at(15, 30), "IDLE")};
  ticks[2].screenshotAtMs = at(14, 19, 50);
  ticks[2].frontmostWindowTitle = "Essay";
  const auto record = GateDecisionLog::record(GateDecided{{"they write", true}}, essay, ticks, at(15, 0));
  const GateDecisionRecord want{.atMs = at(15, 0),
                                .decision = "check_in", .summaryForCoach = "they write", .classifierState = "ON_TASK",
                                .classifierReason = "why", .frontmostApp = "Writer", .frontmostWindowTitle = "Essay",
                                .stateDurationMs = 600'000, .classifierTickAtMs = at(14, 20), .classifierScreenshotAtMs = at(14, 19, 50),
                                .commitmentNotes = "essay", .commitmentDeclaredAtMs = at(14, 0), .commitmentHorizonMinutes = 30,
                                .commitmentOverdueMs = 1'800'000};
  EXPECT_EQ(record, want);
  EXPECT_TRUE(record.isLabelable());
  const auto failed = GateDecisionLog::record(GateFailed{"backend: gone"}, {}, {}, 5);
  EXPECT_EQ(failed.encode(), R"({"v":1,"at_ms":5,"decision":"failed","failure_reason":"backend: gone"})");
  EXPECT_FALSE(failed.isLabelable());
  EXPECT_EQ(GateDecisionLog::record(GateDecided{{"s", false}}, essay, {}, at(14, 30)).commitmentOverdueMs, std::nullopt) << "at its end";

  GateDecisionLog::append(failed, url);
  GateDecisionLog::append(record, url);
  std::ofstream(url, std::ios::app) << "{\"at_ms\":7}\nnot json\n{\"v\":1,\"at_ms\":9,\"decision\":\"check_in\"";
  EXPECT_EQ(GateDecisionLog::read(url), (std::vector{failed, record})) << "what does not decode is skipped, a half line waits";
  EXPECT_EQ(GateDecisionLog::read(url, 1), std::vector{record});
  EXPECT_TRUE(readFile(url).find(R"("summary_for_coach":"they write","classifier_state")") != std::string::npos) << "keys in their order";
}

TEST_F(GateDecisionLogTest, failures) {
  EXPECT_TRUE(GateDecisionLog::read(url).empty()) << "no file yet";
  EXPECT_THROW(GateDecisionLog::append({.decision = "\xff"}, url), GateDecisionLogError);
  EXPECT_FALSE(std::filesystem::exists(url));
  std::filesystem::create_directory(url);
  EXPECT_ANY_THROW(GateDecisionLog::append({.decision = "failed"}, url));
  EXPECT_THROW(GateDecisionLog::read(url), std::system_error);
  for (const auto& [text, want] : {std::pair{"1", true}, {"true", false}, {" 1", false}, {"", false}})
    EXPECT_EQ(GateDecisionLogFlag::isArmed({{"AMBITCAP_GATE_LOG", text}}), want) << text;
}

TEST(GateDecisionLog, isNearOrPastCommitmentBoundary) {
  const auto near = [](const std::vector<EventLogEvent>& events, std::int64_t ms) {
    return GateDecisionLog::isNearOrPastCommitmentBoundary(events, ms, 180);
  };
  EXPECT_FALSE(near(essay, at(14, 26, 59)));
  EXPECT_TRUE(near(essay, at(14, 27)));
  EXPECT_TRUE(near(essay, at(16, 30))) << "and for ever after";
  EXPECT_FALSE(near({event(at(14, 0), "task_declared", {{"notes", "essay"}})}, at(16, 0)));
  EXPECT_FALSE(near({essay[0], event(at(15, 0), "task_cleared")}, at(16, 0)));
}

TEST(GateGapAnalysis, gapsAndHoles) {
  using Gaps = std::vector<GateDecisionGap>;
  const auto at = [](std::vector<std::int64_t> moments) {
    std::vector<GateDecisionRecord> records;
    for (const auto ms : moments) records.push_back({.atMs = ms, .decision = "no_check_in"});
    return records;
  };
  const struct { const char* name; std::vector<std::int64_t> moments; Gaps gaps, holes; } cases[] = {
      {"no records", {}, {}, {{500, 1000, true}}},
      {"one old record", {100}, {{100, 1000, true}}, {{500, 1000, true}}},
      {"exactly the threshold, out of order", {950, 600, 700}, {{600, 700, false}, {700, 950, false}},
       {{500, 600, false}, {600, 700, false}, {700, 950, false}}},
      {"just under it", {599, 698, 797, 896, 995}, {}, {}}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(GateGapAnalysis::gaps(at(c.moments), 1000, 100), c.gaps);
    EXPECT_EQ(GateGapAnalysis::holes(at(c.moments), 500, 1000, 100), c.holes);
  }
  EXPECT_EQ(GateGapAnalysis::hole(700, cases[2].gaps), cases[2].gaps[0]);
  EXPECT_EQ(GateGapAnalysis::hole(951, cases[2].gaps), std::nullopt);
}

TEST(GateFeedbackLadder, passes) {
  using namespace GateFeedbackLadder;
  const GateLabelEraBoundaries boundaries{.suppressionFixesMs = 10, .unansweredHoldMs = 20};
  EXPECT_EQ(gateLabelEra(9, boundaries), GateLabelEra::preSuppressionFixes);
  EXPECT_EQ(gateLabelEra(10, boundaries), GateLabelEra::preUnansweredHold);
  EXPECT_EQ(gateLabelEra(20, boundaries), GateLabelEra::current);
  const std::vector<LabelRow> labels{{40, GateLabel::rightToStayQuiet}, {30, GateLabel::rightToSpeak}, {5, GateLabel::shouldHaveSpoken},
                                     {50, GateLabel::shouldNotHaveSpoken}, {30, GateLabel::shouldHaveSpoken}};
  const auto all = cases(labels, boundaries);
  ASSERT_EQ(all.size(), 4u);
  EXPECT_EQ(all[1], (Case{30, GateLabel::shouldHaveSpoken, false, true, Role::corrective, Pass::dead, GateLabelEra::current}))
      << "the later label";
  const auto told = outcome(all, {{30, true}, {40, false}, {50, true}, {5, false}});
  EXPECT_EQ(told.passes[0], (PassResult{Pass::dead, 1, 1, {}}));
  EXPECT_EQ(told.passes[1], (PassResult{Pass::overcorrection, 1, 2, {50}}));
  EXPECT_EQ(told.passes[2], (PassResult{Pass::residual, 0, 1, {5}}));
  EXPECT_FALSE(told.isGreen);
  EXPECT_TRUE(outcome(all, {{30, true}, {40, false}, {50, false}}).isGreen) << "an old generation's label is not held against this gate";
  EXPECT_FALSE(outcome(all, {{30, true}, {40, false}}).isGreen) << "a case that was not replayed proves nothing";
}

}  // namespace
}  // namespace halvo
