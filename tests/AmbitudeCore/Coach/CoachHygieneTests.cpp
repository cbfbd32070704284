#include <gtest/gtest.h>

#include <chrono>
#include <limits>

#include "AmbitudeCore/Coach/CoachOutputAudit.h"
#include "AmbitudeCore/Coach/CoachSanityChecks.h"
#include "AmbitudeCore/Coach/DegenerateReplyDetector.h"
#include "CaptureShared/Foundation/Text.h"
#include "tests/AmbitudeCore/Gate/GateScene.h"

namespace halvo {
namespace {

using GateScene::at, GateScene::event, GateScene::said;

std::string repeat(std::string_view piece, std::size_t times) {
  std::string text;
  for (std::size_t i = 0; i < times; ++i) text += piece;
  return text;
}

TEST(CoachSanityChecks, degenerationReason) {
  const struct { std::string text; std::optional<std::string> want; } cases[] = {
      {" \n ", {}},
      {repeat("ab", 1000), {}},
      {"\n" + repeat("ab", 1000) + "  ", {}},
      {repeat("ab", 1000) + "c", "length=2001 limit=2000"},
      {repeat("é!", 1000), {}},
      {"so " + repeat("x", 19), {}},
      {"so " + repeat("x", 20) + " so", "repeated_run=20 limit=20"},
      {"a" + repeat(" ", 20) + "b", "repeated_run=20 limit=20"},
      {repeat("👨‍👩‍👧", 20), "repeated_run=20 limit=20"},
      {repeat("e\u0301", 20), "repeated_run=20 limit=20"}};
  for (const auto& c : cases) EXPECT_EQ(CoachSanityChecks::degenerationReason(c.text), c.want) << c.text.substr(0, 40);
}

TEST(CoachSanityChecks, leakedCallsAreTakenOut) {
  const struct { std::string text, want; } cases[] = {
      {"Fine as it is.", "Fine as it is."},
      {" Untouched, blanks and all ", " Untouched, blanks and all "},
      {"I wrote (go quiet) and {x}", "I wrote (go quiet) and {x}"},
      {"Ok. <|tool_response>", "Ok."},
      {"<｜tool▁calls▁begin｜><｜tool▁call▁begin｜>Ok<｜tool▁sep｜>.<｜tool▁call▁end｜><｜tool▁calls▁end｜>", "Ok."},
      {"Ok. go_quiet(minutes=30)", "Ok."},
      {"Ok. write_task {\"task\": \"tea\"} Then.", "Ok.  Then."},
      {"Ok. go_quiet ({\"minutes\": 3})", "Ok."},
      {"my_go_quiet(30) stays", "my_go_quiet(30) stays"},
      {"Ok.\n```json\n{\"action\": \"go_quiet\",\n\"minutes\": 30}\n```", "Ok."},
      {"```json\n{\"recipe\": \"tea\"}\n```", "```json\n{\"recipe\": \"tea\"}\n```"},
      {"{\"call\": \"open_ui\", \"arguments\": {\"message\": \"hi\"}} Hello", "Hello"},
      {"{\"call\": \"my mother\"}", "{\"call\": \"my mother\"}"},
      {"A <invoke name=\"x\">\n<parameter name=\"y\">1</parameter></invoke> B", "A  B"},
      {"A <｜DSML｜invoke name=\"x\">z</｜DSML｜invoke> B", "A  B"},
      {"A <||DSML||function_calls>z</||DSML||function_calls> B", "A  B"},
      {"A <invoke name=\"x\"/> B", "A  B"},
      {"<parameter name=\"y\" string=\"true\"/>B", "B"},
      {"<tool_calls>go</tool_calls>", ""},
      {"B</invoke>", "B"},
      {"<invoke name=\"x\">B", "B"},
      {"<|tool_<|tool_response>response>B", "B"},
      {"<inv<invoke name=\"x\"/>oke name=\"y\"/>B", "B"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(CoachSanityChecks::stripLeakedToolCallSyntaxUncached(c.text), c.want) << c.text;
    EXPECT_EQ(CoachSanityChecks::stripLeakedToolCallSyntax(c.text), CoachSanityChecks::stripLeakedToolCallSyntax(c.text));
    EXPECT_EQ(CoachSanityChecks::showsLeakedToolCallAttempt(c.text), c.text != c.want) << c.text;
  }
  for (const auto* changing :
       {"{\"action\" : \"go_quiet\"}", "<invoke name=\"write_task\">", "<｜DSML｜invoke name = \"open_ui\">", "close_ui()"})
    EXPECT_TRUE(CoachSanityChecks::showsLeakedStateChangingToolCall(changing)) << changing;
  for (const auto* harmless : {"{\"action\": \"check_ui_state\"}", "<invoke name=\"x\">", "go_quiet now"})
    EXPECT_FALSE(CoachSanityChecks::showsLeakedStateChangingToolCall(harmless)) << harmless;
  EXPECT_TRUE(CoachSanityChecks::isToolNameLeak({.text = " go_quiet\n"}));
  EXPECT_FALSE(CoachSanityChecks::hasAnySpokenContent({.text = " \uE000 "}));
  EXPECT_EQ(CoachSanityChecks::stripSilenceSentinel("\uE000 Still\uE000?"), "Still?");
}

TEST(CoachSanityChecks, hostileTextEndsSoon) {
  for (const auto* piece : {"{", "{\"action\":\"", "{{}", "<invoke name=\"x\">", "<||DSML||", "```json ", "go_quiet(", "go_quiet {",
                            "<invoke name=\"", "\"call\" : \"go_quiet\" {}"}) {
    const auto text = repeat(piece, 65'536 / std::string_view(piece).size());
    const auto began = std::chrono::steady_clock::now();
    const auto out = CoachSanityChecks::stripLeakedToolCallSyntaxUncached(text);
    const auto took = std::chrono::steady_clock::now() - began;
    EXPECT_LT(took, std::chrono::milliseconds(1500)) << piece;  // generous: sanitizers and a busy machine
    EXPECT_EQ(CoachSanityChecks::stripLeakedToolCallSyntaxUncached(out), out) << piece;
  }
}

TEST(DegenerateReplyDetector, evaluate) {
  using namespace DegenerateReplyDetector;
  const DegenerateReplyCentroid centroid{
      .vector = {1, 0}, .dimensions = 2, .embeddingModel = "m", .cleanMean = 0.2, .cleanStd = 0.1, .chunkWords = 3, .chunkStride = 2};
  std::vector<std::string> asked;
  TextEmbedding embedding{.modelID = "m", .embed = [&](const std::vector<std::string>& texts, const std::stop_token&) {
                            asked = texts;
                            std::vector<std::vector<double>> vectors;
                            for (const auto& text : texts)
                              vectors.push_back(text.find("odd") != std::string::npos   ? std::vector<double>{0, 1}
                                                : text.find("big") != std::string::npos ? std::vector<double>{1e308, 1e308}
                                                : text.find("nil") != std::string::npos ? std::vector<double>{0, 0}
                                                                                        : std::vector<double>{2, 0});
                            return vectors;
                          }};
  const auto look = [&](const char* text, const DegenerateReplySensitivity& sensitivity = DegenerateReplySensitivity::replay) {
    return evaluate({.text = text, .sensitivity = sensitivity}, centroid, &embedding, {});
  };
  EXPECT_FALSE(look("a b c d e f").isDegenerate);
  EXPECT_EQ(asked, (std::vector<std::string>{"a b c", "c d e", "e f"}));
  const auto odd = look("a b c d odd f g");
  EXPECT_TRUE(odd.isDegenerate);
  EXPECT_EQ(odd.signal, Signal(EmbeddingCentroid{1.0, centroid.threshold(2)}));
  EXPECT_EQ(odd.firstExceedingChunkIndex, 1u);
  EXPECT_EQ(odd.worstChunkText, "c d odd");
  EXPECT_TRUE(odd.reason->starts_with("embedding_worst_chunk=1.0000"));
  EXPECT_EQ(look("nil").signal, Signal(EmbeddingCentroid{1.0, centroid.threshold(2)}));
  EXPECT_TRUE(look("big", DegenerateReplySensitivity::display).isDegenerate) << "no number to go by";
  EXPECT_EQ(evaluate({.text = "a", .finishReason = "length"}, centroid, &embedding, {}).signal, Signal(FinishReasonLength{}));
  EXPECT_EQ(look(std::string(20, 'x').c_str()).signal, Signal(RepeatedRun{20, 20}));
  EXPECT_FALSE(evaluate({.text = "odd"}, DegenerateReplyCentroid::calibrated2026_09_03(), &embedding, {}).isDegenerate)
      << "no vector, no check";

  const auto kindOf = [&](TextEmbedding bad) -> std::optional<EvaluationError::Kind> {
    try {
      evaluate({.text = "a b"}, centroid, &bad, {});
    } catch (const EvaluationError& error) {
      return error.kind();
    }
    return std::nullopt;
  };
  const auto answering = [](std::vector<std::vector<double>> vectors) { return [vectors](const auto&, const auto&) { return vectors; }; };
  EXPECT_EQ(kindOf({"other", answering({{1, 0}})}), EvaluationError::Kind::embeddingModelMismatch);
  EXPECT_EQ(kindOf({"m", answering({{1}})}), EvaluationError::Kind::embeddingDimensionMismatch);
  EXPECT_EQ(kindOf({"m", answering({})}), EvaluationError::Kind::embeddingCountMismatch);
}

TEST(NightlyCoachOutputAudit, evaluate) {
  const auto decision = [](std::int64_t ms, const char* name) {
    return event(ms, "coach_decision", {{"tool_calls", JSONValue::Array{JSONObject{{"name", name}, {"arguments", JSONObject{}}}}}});
  };
  const std::vector<EventLogEvent> events{
      said(at(9, 0, 0, 1), "coach", "I'll stay quiet"),  // outside the window
      said(at(9, 0), "coach", "I'll stay quiet."),
      decision(at(9, 0, 10), "go_quiet"),
      said(at(10, 0), "coach", "Staying out of your way."),
      decision(at(10, 0, 11), "do_not_disturb"),
      decision(at(11, 0), "stay_silent"),
      decision(at(11, 1), "format_disk"),
      event(at(11, 2), "coach_decision", {{"tool_calls", JSONValue::Array{}}, {"unrecognized_tool_calls", JSONValue::Array{"sudo"}}}),
      said(at(12, 0), "coach", "Доброе утро"),
      said(at(12, 1), "user", "привет"),
      said(at(12, 2), "coach", "Привет! 東"),
      said(at(12, 3), "coach", std::string(20, '?')),
      said(at(12, 4), "coach", " "),
      event(at(12, 5), "coach_decision", {{"tool_calls", JSONValue::Array{}}}),
  };
  const auto result = NightlyCoachOutputAudit::evaluate(events, at(13, 0));
  std::vector<std::string> found;
  for (const auto& finding : result.report.findings) found.push_back(finding.check + ": " + finding.detail);
  EXPECT_EQ(found, (std::vector<std::string>{"quiet_promise_without_window: promised quiet, no do_not_disturb within 10000ms",
                                             "unknown_tool_call: called format_disk", "unknown_tool_call: called sudo",
                                             "garble: foreign_script_letters=10", "garble: foreign_script_letters=1",
                                             "garble: repeated_run=20 limit=20"}));
  EXPECT_EQ(result.report.skippedEmptyText, 1);
  EXPECT_EQ(result.logLines.at(0), "coach output audit: scanned 6 coach messages, 5 decisions carrying tool calls");
  const auto kept = NightlyCoachOutputAudit::event(result, at(13, 0));
  ASSERT_TRUE(kept);
  EXPECT_EQ(kept->type, "coach_output_audit_findings");
  EXPECT_EQ(kept->detail.find("findings")->arrayValue()->size(), 6u);
  EXPECT_EQ(NightlyCoachOutputAudit::displayText(*kept), "The nightly coach-output audit found something odd overnight.");

  const struct { std::vector<EventLogEvent> events; const char* line; std::optional<std::string> type; } cases[] = {
      {{},
       "coach output audit: not evaluated: no events in the log yet -- nothing to check (fresh install).",
       "coach_output_audit_empty_window"},
      {{said(at(9, 0, 0, 1), "coach", "x")},
       "coach output audit: not evaluated: no events at all in the last 25h, though the log holds 1 event(s) overall -- the event "
       "log itself "
       "has gone quiet",
       "coach_output_audit_empty_window"},
      {{said(at(12, 0), "coach", "Still the essay?")}, "coach output audit: clean.", {}}};
  for (const auto& c : cases) {
    const auto quiet = NightlyCoachOutputAudit::evaluate(c.events, at(13, 0));
    EXPECT_EQ(quiet.logLines.back(), c.line);
    const auto row = NightlyCoachOutputAudit::event(quiet, at(13, 0));
    EXPECT_EQ(row ? std::optional(row->type) : std::nullopt, c.type);
  }
}

}  // namespace
}  // namespace halvo
