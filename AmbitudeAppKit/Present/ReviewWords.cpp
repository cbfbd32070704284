#include "AmbitudeAppKit/Present/ReviewWords.h"

#include <optional>
#include <string_view>

#include <fmt/format.h>

#include "CaptureShared/Foundation/Match.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Labels/LabelVocabulary.h"

namespace halvo::ReviewWords {

namespace {

std::string words(std::string_view stored) { return Text::replaceAll(std::string(stored), "_", " "); }
std::string percent(const std::optional<double>& share) { return share ? fmt::format("{:.0f} %", 100 * *share) : "-"; }

std::string told(const GateDecisionRecord& decision, const Calendar& calendar) {
  const auto* what = decision.decision == "check_in" ? "spoke" : decision.decision == "no_check_in" ? "stayed quiet" : "could not decide";
  const auto why = decision.summaryForCoach ? decision.summaryForCoach : decision.failureReason;
  return fmt::format("The gate {} at {}{}", what, calendar.hourMinute(decision.atMs), why && !why->empty() ? ": " + *why : "");
}
std::string told(const GateDecisionGap& gap, const Calendar& calendar) {
  return "The gate was not asked from " + calendar.hourMinute(gap.fromMs) + " to " +
         (gap.isOpen ? std::string("when this was drawn") : calendar.hourMinute(gap.toMs));
}

}  // namespace

std::string name(Layer1Answer answer) { return LabelVocabulary::displayName(rawValue(answer)); }
std::string name(const Layer2Answer& answer) {
  return match(answer, [](GateLabel label) { return words(rawValue(label)); },
               [](GateGapLabelWriter::Label label) { return words(rawValue(label)); });
}
std::string name(const Judgement& judgement) {
  return match(
      judgement, [](const ReasonLabelWriter::ReasonWasRight&) -> std::string { return "right"; },
      [](const ReasonLabelWriter::ReasonWasWrong& wrong) -> std::string {
        switch (wrong.rule) {
          case ReasonLabelWriter::Rule::citedAbsentEvidence: return "names what was not there";
          case ReasonLabelWriter::Rule::topicNotMoment: return "about the topic, not the moment";
          case ReasonLabelWriter::Rule::inaccurate: return "inaccurate";
        }
        return {};
      });
}

std::vector<Layer2Answer> choices(const RampSampleSelector::Layer2Question& question) {
  return match(
      question,
      [](const GateDecisionRecord& decision) {
        const auto labels = GateLabelWriter::choices(decision.decision);
        return std::vector<Layer2Answer>(labels.begin(), labels.end());
      },
      [](const GateDecisionGap&) {
        using Label = GateGapLabelWriter::Label;
        return std::vector<Layer2Answer>{Label::fineToBeQuiet, Label::shouldHaveSpoken};
      });
}

const std::vector<Judgement>& judgements() {
  using namespace ReasonLabelWriter;
  static const std::vector<Judgement> all{ReasonWasRight{}, ReasonWasWrong{Rule::citedAbsentEvidence}, ReasonWasWrong{Rule::topicNotMoment},
                                          ReasonWasWrong{Rule::inaccurate}};
  return all;
}

std::string when(std::int64_t ms, const Calendar& calendar) {
  const auto at = calendar.fields(ms);
  return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02}", at.year, at.month, at.day, at.hour, at.minute, at.second);
}

std::string declared(const ReviewSession::Blind& moment) { return moment.declaredTask.value_or("(nothing declared)"); }

std::string inFront(const ReviewSession::Blind& moment) {
  const auto& title = moment.windowTitle ? moment.windowTitle : moment.browserTitle;
  return moment.frontmostApp.value_or("(not known)") + (title && !title->empty() ? ", " + *title : "");
}

std::string verdict(const ReviewSession::Reveal& told) {
  return LabelVocabulary::displayNameForState(told.state) +
         (told.confidence ? fmt::format(" ({:.0f} % sure)", 100 * *told.confidence) : "") +
         (told.reason ? ": " + *told.reason : "");
}

std::string gate(const ReviewSession::Reveal& told, const Calendar& calendar) {
  if (told.decision) return ReviewWords::told(*told.decision, calendar);
  const auto* gap = told.question ? std::get_if<GateDecisionGap>(&*told.question) : nullptr;
  return gap ? ReviewWords::told(*gap, calendar) : std::string();
}

Score of(const ReviewScore::Score& score, ReviewScore::Evidence evidence) {
  Score made;
  for (const auto& [state, counts] : score.states)
    made.rows.push_back({state, std::to_string(counts.verdicts), std::to_string(counts.truths), std::to_string(counts.agreed),
                         percent(counts.precision()), percent(counts.recall())});
  const bool isBlind = evidence == ReviewScore::Evidence::blindRandom;
  made.lines = {
      fmt::format("agreed: {} of {}", score.agreed, score.scored),
      fmt::format("left out: {} where no state is the truth, {} without a verdict in the log, {} of other evidence; {} revision(s)",
                  score.noTruth, score.noVerdict, score.otherEvidence, score.revisionsPassed)};
  for (const auto& [state, count] : score.declared)
    made.lines.push_back(
        fmt::format("left out: {} of {}, which follows from what you declared: there is no answer that could agree with it", count, state));
  if (isBlind)
    made.lines.emplace_back("rare states are drawn more often than they come, so recall and the total are of these moments, not of a day");
  return made;
}

}  // namespace halvo::ReviewWords
