// A review, from the first question to the score.

#include <gtest/gtest.h>

#include "AmbitudeCore/Review/ReasonLabelWriter.h"
#include "AmbitudeCore/Review/ReviewDraw.h"
#include "AmbitudeCore/Review/ReviewScore.h"
#include "AmbitudeCore/Review/ReviewSession.h"
#include "AmbitudeCore/Review/SystemReviewLabels.h"
#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/EventLog/JSONLAppend.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Labels/LabelsSchema.h"
#include "CaptureShared/Labels/LabelsWriter.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {

using RampLabelSubmission::Layer1Answer;
using RampSampleSelector::Sample;
using RampSampleSelector::SamplingMode;

constexpr std::int64_t now = 1'795'600'000'000;

ClassifierTick tick(std::int64_t atMs, const char* state) {
  return {.at = ISO8601::utcMillis(atMs), .state = state, .reason = "the verdict's reason",
          .declaredTask = "the essay", .screenshotAtMs = atMs - 5'000};
}

struct ReviewSessionTest : testing::Test {
  ReviewSessionTest() {
    SQLiteDB db(places.labels);
    LabelsSchema::create(db);
  }
  /// A decision, a gap, a failed call and a bare moment.
  static ReviewBatch batch() {
    std::vector<Sample> samples;
    const RampSampleSelector::Provenance drawn{
        .stratum = RampSampleSelector::Stratum::state("NOT_ALIGNED"), .stratumPopulation = 9, .seed = ~0ull};
    for (int i = 0; i < 4; ++i) samples.push_back({.atMs = now + i, .tick = tick(now + i, "NOT_ALIGNED"), .provenance = drawn});
    samples[0].decision = GateDecisionRecord{.atMs = now, .decision = "no_check_in", .summaryForCoach = "quiet"};
    samples[1].gap = GateDecisionGap{now - 900'000, now, true};
    samples[2].decision = GateDecisionRecord{.atMs = now, .decision = "failed"};
    samples[2].reasons = {RampSampleSelector::Reason::gateFailed};
    return ReviewBatch::make(samples, SamplingMode::verdictBlind, ~0ull, now);
  }
  /// Goes to the moment of an index above.
  void skipTo(ReviewSession& session, int index) {
    while (session.blind()->atMs != now + index) session.next();
  }
  std::vector<LabelHistory::Row> labels() { return LabelHistory::read(places.labels); }

  test::TemporaryFolder folder;
  ReviewSession::Places places = ReviewSession::Places::under(folder.path());
  Calendar utc = Calendar::utc();
};

TEST_F(ReviewSessionTest, blindFirstThenTheVerdict) {
  ReviewSession session(batch(), places, utc);
  skipTo(session, 0);
  EXPECT_FALSE(session.reveal()) << "nothing of the verdict before the answer";
  EXPECT_EQ(session.blind()->frameMs, now - 5'000);
  EXPECT_THROW(session.revise(Layer1Answer::onTask, {}, now), std::logic_error);
  EXPECT_THROW(session.gradeReason(ReasonLabelWriter::ReasonWasRight{}, now), std::logic_error);
  EXPECT_THROW(session.answerGate(GateLabel::rightToStayQuiet, {}, now), std::logic_error);
  session.answer(Layer1Answer::rabbitHole, "maps again", now);
  EXPECT_THROW(session.answer(Layer1Answer::onTask, {}, now), std::logic_error);
  EXPECT_EQ(session.reveal()->state + *session.reveal()->reason, "NOT_ALIGNEDthe verdict's reason");
  session.revise(Layer1Answer::notAligned, {}, now);
  session.gradeReason(ReasonLabelWriter::ReasonWasRight{}, now);
  EXPECT_EQ(readFile(places.reasonLabels), R"({"atMs":1795600000000,"judgement":"right","labeledAt":")" + ISO8601::utcSeconds(now) +
                                               R"(","state":"NOT_ALIGNED","v":1})" "\n");
  EXPECT_THROW(session.answerGate(GateLabel::rightToSpeak, {}, now), GateLabelWriter::WriteError);
  EXPECT_THROW(session.answerGate(GateGapLabelWriter::Label::fineToBeQuiet, {}, now), std::logic_error);
  EXPECT_TRUE(GateLabelWriter::read(places.gateLabels).empty()) << "what contradicts the decision is not written";
  session.answerGate(GateLabel::shouldHaveSpoken, "it was long", now);
  const GateLabelWriter::Row want{
      .atMs = now, .label = GateLabel::shouldHaveSpoken, .decision = "no_check_in", .note = "it was long", .labeledAt = ISO8601::utcSeconds(now)};
  EXPECT_EQ(GateLabelWriter::read(places.gateLabels), std::vector{want});
  const auto left = ReviewSession::resume(places, utc);
  ASSERT_TRUE(left);
  EXPECT_EQ(left->progress().number, session.progress().number) << "what is done stays done";
  const auto rows = labels();
  ASSERT_EQ(rows.size(), 2u);
  const std::string drawn = "mode=verdict_blind stratum=state:NOT_ALIGNED stratum_n=9 batch_n=0 seed=18446744073709551615";
  EXPECT_EQ(rows[0].label + " " + *rows[0].notes, "rabbit_hole " + drawn);
  EXPECT_EQ(rows[1].label + " " + *rows[1].notes, "not_aligned revised AFTER reveal — anchored on the classifier's verdict " + drawn);
  EXPECT_TRUE(*rows[0].answeredBlind && !*rows[1].answeredBlind);
  auto kept = SQLiteDB(places.labels, SQLiteDB::Role::reader).prepare("SELECT declared_task || ', ' || user_note FROM labels WHERE id = 1");
  ASSERT_TRUE(kept.step());
  EXPECT_EQ(kept.optionalText(0), "the essay, maps again");
}

TEST_F(ReviewSessionTest, isLeftAndResumed) {
  EXPECT_FALSE(ReviewSession::resume(places, utc));
  {
    ReviewSession session(batch(), places, utc);
    EXPECT_EQ(ReviewBatch::decode(readFile(places.batch)), batch());
    skipTo(session, 1);
    session.answer(Layer1Answer::onTask, {}, now);
  }
  auto session = ReviewSession::resume(places, utc);
  ASSERT_TRUE(session && session->reveal());
  session->answerGate(GateGapLabelWriter::Label::shouldHaveSpoken, {}, now);
  const GateGapLabelWriter::Row want{.fromMs = now - 900'000,
                                     .toMs = now,
                                     .isOpen = true,
                                     .label = GateGapLabelWriter::Label::shouldHaveSpoken,
                                     .labeledAt = ISO8601::utcSeconds(now)};
  EXPECT_EQ(GateGapLabelWriter::read(places.gateGapLabels), std::vector{want});
  while (!session->isFinished()) session->next();
  EXPECT_EQ(session->progress().answered * 100 + session->progress().skipped, 103u);
  EXPECT_FALSE(std::filesystem::exists(places.batch));
}

TEST_F(ReviewSessionTest, tellsHowTheDrawingComesAlong) {
  folder.write(std::filesystem::relative(DataPaths::checkerLog(folder.path()), folder.path()), tick(now, "ON_TASK").encode() + "\n");
  std::string told;
  const auto tell = [&](const auto& phase) { told += RampSampleSelector::RampLoadPhase::text(phase) + "|"; };
  const auto drawn = ReviewDraw::draw({.root = folder.path(), .asOfMs = now, .isRenderable = [](auto) { return true; }, .onProgress = tell}, utc);
  EXPECT_TRUE(drawn);
  EXPECT_EQ(told, "Reading the logs…|Locating video for 0 of 20 moments|Found 1 of 20 moment candidates||");
}

TEST_F(ReviewSessionTest, noAnswerIsDropped) {
  ReviewSession session(batch(), places, utc);
  std::filesystem::rename(places.labels, folder.path() / "away");
  std::filesystem::create_directory(places.labels);
  EXPECT_THROW(session.answer(Layer1Answer::onTask, {}, now), LabelsWriter::LabelsWriterError);
  EXPECT_FALSE(session.reveal()) << "it can be given again";
  std::filesystem::remove(places.labels);
  std::filesystem::rename(folder.path() / "away", places.labels);
  // The place can't be kept, as when the process dies between the two: the label tells it later.
  const auto before = readFile(places.batch);
  session.answer(Layer1Answer::onTask, {}, now);
  folder.write("review-batch.json", before);
  EXPECT_TRUE(ReviewSession::resume(places, utc)->reveal());
  folder.write("review-batch.json", before.substr(0, before.size() / 2));
  EXPECT_THROW(ReviewSession::resume(places, utc), ReviewSession::DamagedBatch);
  std::filesystem::remove(places.batch);
  std::filesystem::create_directories(places.batch / "in the way");
  session.next();
  EXPECT_TRUE(session.placeFailure());
}

TEST_F(ReviewSessionTest, malformedLinesAreSkipped) {
  using namespace SystemReviewLabels;
  const auto grades = defaultURL(folder.path());
  EXPECT_THROW(append({.atMs = 1, .describeText = "a screen", .note = "  "}, grades), WriteError);
  EXPECT_FALSE(std::filesystem::exists(grades));
  const Row row{.atMs = now,
                .decisionAtMs = 2,
                .describeGrade = DescribeGrade::hallucinated,
                .describeProvenance = DescribeProvenance::logged,
                .describeText = "a \"screen\"\n",
                .markers = {{.ordinal = 1, .kind = Marker::Kind::chatMessage, .atMs = 3, .role = "user", .text = "hm"}},
                .labeledAt = timestamp(now)};
  append(row, grades);
  JSONLAppend::append(std::string_view("{\"atMs\":\"soon\"}"), grades);
  JSONLAppend::append(std::string_view("[broken"), grades);
  append(row, grades);
  EXPECT_EQ(read(grades), (std::vector{row, row}));
  const auto reasons = ReasonLabelWriter::defaultURL(folder.path());
  ReasonLabelWriter::write({.judgement = ReasonLabelWriter::ReasonWasWrong{ReasonLabelWriter::Rule::topicNotMoment}, .atMs = 5, .state = "ON_TASK"}, reasons);
  EXPECT_EQ(readFile(reasons), R"({"atMs":5,"judgement":"wrong","labeledAt":"1970-01-01T00:00:00Z","rule":"topic_not_moment","state":"ON_TASK","v":1})" "\n");
  folder.write("gate-labels.jsonl", R"({"atMs":1,"label":"nap"}
none
{"atMs":1,"label":"right_to_speak"}
{"atMs":1,"label":"should_not_have_spoken"}
{"atMs":2,"lab)");
  const auto cases = GateFeedbackLadder::cases(GateLabelWriter::ladderRows(GateLabelWriter::read(places.gateLabels)));
  ASSERT_EQ(cases.size(), 1u);
  EXPECT_EQ(cases[0].label, GateLabel::shouldNotHaveSpoken) << "the last row of a decision counts";
}

TEST(ReviewScore, measuresBlindRandomAnswers) {
  std::int64_t id = 0;
  std::vector<LabelHistory::Row> rows;
  std::vector<ClassifierTick> ticks;
  const auto add = [&](std::int64_t atMs, const char* state, const char* label, bool blind = true, const char* mode = "verdict_blind") {
    rows.push_back(
        {.id = ++id, .t0Ms = atMs, .label = label, .notes = std::string("mode=") + mode, .source = "in_app_ramp", .answeredBlind = blind});
    if (state) ticks.push_back(tick(atMs, state));
  };
  add(1, "ON_TASK", "on_task"), add(2, "ON_TASK", "on_task_overtime"), add(3, "ON_TASK", "rabbit_hole");
  add(4, "OFF_TASK", "off_task"), add(5, "IDLE", "on_task"), add(6, "ON_TASK", "ambiguous");
  add(7, "ABSTAINED", "on_task"), add(8, nullptr, "on_task"), add(9, "NO_TASK", "on_task"), add(12, "BREAK", "on_task");
  add(3, nullptr, "on_task", false);  // a change of mind when the verdict was seen
  add(10, "ON_TASK", "on_task", false), add(11, "ON_TASK", "on_task", true, "interesting_moments");
  using ReviewScore::StateScore;
  const auto told = ReviewScore::score(rows, ticks, ReviewScore::Evidence::blindRandom);
  EXPECT_EQ(told, (ReviewScore::Score{.states = {{"IDLE", {1, 0, 0}}, {"NOT_ALIGNED", {1, 2, 1}}, {"ON_TASK", {3, 3, 2}}},
                                      .scored = 5,
                                      .agreed = 3,
                                      .noTruth = 1,
                                      .noVerdict = 2,
                                      .declared = {{"BREAK", 1}, {"NO_TASK", 1}},
                                      .otherEvidence = 2,
                                      .revisionsPassed = 1}));
  EXPECT_FALSE(told.states.at("IDLE").recall());
  EXPECT_EQ(told.states.at("NOT_ALIGNED").recall(), 0.5);
  EXPECT_EQ(ReviewScore::score(rows, ticks, ReviewScore::Evidence::everything).scored, 7);
}

}  // namespace
}  // namespace halvo
