#include "AmbitudeAppKit/Present/ReviewWords.h"

#include <optional>
#include <string_view>

#include <fmt/format.h>

#include "CaptureShared/Foundation/Match.h"
#include "CaptureShared/Foundation/Translation.h"
#include "CaptureShared/Labels/LabelVocabulary.h"

namespace halvo::ReviewWords {

namespace {

std::string percent(const std::optional<double>& share) { return share ? tr("{:.0f} %", 100 * *share) : "-"; }

std::string told(const GateDecisionRecord& decision, const Calendar& calendar) {
  const auto at = calendar.hourMinute(decision.atMs);
  const auto what = decision.decision == "check_in"      ? tr("The gate spoke at {}", at)
                    : decision.decision == "no_check_in" ? tr("The gate stayed quiet at {}", at)
                                                         : tr("The gate could not decide at {}", at);
  const auto why = decision.summaryForCoach ? decision.summaryForCoach : decision.failureReason;
  return why && !why->empty() ? what + ": " + *why : what;
}
std::string told(const GateDecisionGap& gap, const Calendar& calendar) {
  return tr("The gate was not asked from {} to {}", calendar.hourMinute(gap.fromMs),
            gap.isOpen ? tr("when this was drawn") : calendar.hourMinute(gap.toMs));
}

}  // namespace

std::string name(Layer1Answer answer) { return LabelVocabulary::displayName(rawValue(answer)); }
std::string name(const Layer2Answer& answer) {
  return match(
      answer,
      [](GateLabel label) -> std::string {
        switch (label) {
          case GateLabel::shouldHaveSpoken: return tr("should have spoken");
          case GateLabel::rightToStayQuiet: return tr("right to stay quiet");
          case GateLabel::shouldNotHaveSpoken: return tr("should not have spoken");
          case GateLabel::rightToSpeak: return tr("right to speak");
        }
        return {};
      },
      [](GateGapLabelWriter::Label label) -> std::string {
        using Label = GateGapLabelWriter::Label;
        switch (label) {
          case Label::fineToBeQuiet: return tr("fine to be quiet");
          case Label::shouldHaveSpoken: return tr("should have spoken");
        }
        return {};
      });
}
std::string name(const Judgement& judgement) {
  return match(
      judgement, [](const ReasonLabelWriter::ReasonWasRight&) -> std::string { return tr("right"); },
      [](const ReasonLabelWriter::ReasonWasWrong& wrong) -> std::string {
        switch (wrong.rule) {
          case ReasonLabelWriter::Rule::citedAbsentEvidence: return tr("names what was not there");
          case ReasonLabelWriter::Rule::topicNotMoment: return tr("about the topic, not the moment");
          case ReasonLabelWriter::Rule::inaccurate: return tr("inaccurate");
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

std::string declared(const ReviewSession::Blind& moment) { return moment.declaredTask.value_or(tr("(nothing declared)")); }

std::string inFront(const ReviewSession::Blind& moment) {
  const auto& title = moment.windowTitle ? moment.windowTitle : moment.browserTitle;
  return moment.frontmostApp.value_or(tr("(not known)")) + (title && !title->empty() ? ", " + *title : "");
}

std::string verdict(const ReviewSession::Reveal& told) {
  return LabelVocabulary::displayNameForState(told.state) +
         (told.confidence ? tr(" ({:.0f} % sure)", 100 * *told.confidence) : "") +
         (told.reason ? ": " + *told.reason : "");
}

std::string gate(const ReviewSession::Reveal& told, const Calendar& calendar) {
  if (told.decision) return ReviewWords::told(*told.decision, calendar);
  const auto* gap = told.question ? std::get_if<GateDecisionGap>(&*told.question) : nullptr;
  return gap ? ReviewWords::told(*gap, calendar) : std::string();
}

std::array<std::string, 6> Score::headers() {
  return {tr("state"), tr("verdicts"), tr("truths"), tr("agreed"), tr("precision"), tr("recall")};
}

Score of(const ReviewScore::Score& score, ReviewScore::Evidence evidence) {
  Score made;
  for (const auto& [state, counts] : score.states)
    made.rows.push_back({LabelVocabulary::displayNameForState(state), std::to_string(counts.verdicts),
                         std::to_string(counts.truths), std::to_string(counts.agreed),
                         percent(counts.precision()), percent(counts.recall())});
  const bool isBlind = evidence == ReviewScore::Evidence::blindRandom;
  made.lines = {
      tr("agreed: {} of {}", score.agreed, score.scored),
      tr("left out: {} where no state is the truth, {} without a verdict in the log, {} of other evidence; {} revision(s)", score.noTruth,
         score.noVerdict, score.otherEvidence, score.revisionsPassed)};
  for (const auto& [state, count] : score.declared)
    made.lines.push_back(
        tr("left out: {} of {}, which follows from what you declared: there is no answer that could agree with it", count,
           LabelVocabulary::displayNameForState(state)));
  if (isBlind)
    made.lines.push_back(
        tr("rare states are drawn more often than they come, so recall and the total are of these moments, not of a day"));
  return made;
}

}  // namespace halvo::ReviewWords
