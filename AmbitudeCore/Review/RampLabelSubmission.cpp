#include "AmbitudeCore/Review/RampLabelSubmission.h"

#include <stdexcept>
#include <vector>

#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Foundation/Translation.h"
#include "CaptureShared/Labels/LabelsWriter.h"

namespace halvo::RampLabelSubmission {

namespace {
/// The question of a sample when it is of this kind.
template <class Question>
Question questionOf(const Sample& sample) {
  const auto question = sample.layer2Question();
  const auto* found = question ? std::get_if<Question>(&*question) : nullptr;
  if (!found) throw std::logic_error("this moment has no such question");
  return *found;
}
}  // namespace

std::optional<std::string> hint(Layer1Answer answer) {
  switch (answer) {
    case Layer1Answer::onTaskOvertime: return tr("right work, over the time you gave it");
    case Layer1Answer::switchingTasks: return tr("in between, not settled on either");
    case Layer1Answer::rabbitHole: return tr("started related, ended somewhere else");
    case Layer1Answer::ambiguous: return tr("excluded from scoring — better than a guess");
    case Layer1Answer::onTask:
    case Layer1Answer::notAligned:
    case Layer1Answer::notUsingComputer: return std::nullopt;
  }
  return std::nullopt;
}

void submitLayer1(const Layer1& given, const Sample& forSample, const Calendar& calendar, const std::filesystem::path& labelsPath) {
  std::vector<std::string> notes;
  if (given.note && !Text::isBlank(*given.note)) notes.emplace_back(*given.note);
  if (!given.answeredBlind) notes.emplace_back(revisedAfterRevealNote);
  notes.push_back(forSample.provenance.noteFragment());
  LabelsWriter::insert({.label = std::string(rawValue(given.answer)),
                        .declaredTask = forSample.tick.declaredTask,
                        .tickTsMs = forSample.atMs,
                        .notes = Text::join(notes, " "),
                        .asOfMs = given.asOfMs,
                        .source = std::string(LabelsWriter::rampSourceValue),
                        .answeredBlind = given.answeredBlind,
                        .userNote = given.comment},
                       calendar, labelsPath);
}

void submitLayer2(GateLabel label, const Sample& forSample, const std::optional<std::string>& note, std::int64_t asOfMs,
                  const std::filesystem::path& gateLabelsURL) {
  const auto decision = questionOf<GateDecisionRecord>(forSample);
  GateLabelWriter::append(
      {.atMs = decision.atMs, .label = label, .decision = decision.decision, .note = note, .labeledAt = ISO8601::utcSeconds(asOfMs)},
      gateLabelsURL);
}

void submitLayer2Gap(GateGapLabelWriter::Label label, const Sample& forSample, const std::optional<std::string>& note, std::int64_t asOfMs,
                     const std::filesystem::path& gateGapLabelsURL) {
  const auto gap = questionOf<GateDecisionGap>(forSample);
  GateGapLabelWriter::append({.fromMs = gap.fromMs,
                              .toMs = gap.toMs,
                              .isOpen = gap.isOpen,
                              .label = label,
                              .note = note,
                              .labeledAt = ISO8601::utcSeconds(asOfMs)},
                             gateGapLabelsURL);
}

}  // namespace halvo::RampLabelSubmission
