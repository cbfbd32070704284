#include "AmbitudeCore/Review/ReviewSession.h"

#include <algorithm>
#include <system_error>
#include <utility>

#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/Match.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Foundation/Translation.h"
#include "CaptureShared/Labels/AnsweredMoments.h"
#include "CaptureShared/Labels/LabelsSchema.h"

namespace halvo {

namespace {
using Stage = ReviewBatch::Stage;
bool isOpen(const ReviewBatch::Item& item) { return item.stage == Stage::blind || item.stage == Stage::revealed; }
}  // namespace

ReviewSession::Places ReviewSession::Places::under(const std::filesystem::path& dataRoot) {
  return {.labels = dataRoot / "labels.sqlite",
          .gateLabels = GateLabelWriter::defaultURL(dataRoot),
          .gateGapLabels = GateGapLabelWriter::defaultURL(dataRoot),
          .reasonLabels = ReasonLabelWriter::defaultURL(dataRoot),
          .batch = dataRoot / "review-batch.json"};
}

ReviewSession::ReviewSession(ReviewBatch batch, Places places, Calendar calendar)
    : batch_(std::move(batch)), places_(std::move(places)), calendar_(calendar) {
  if (!isFinished()) writeFileAtomically(places_.batch, batch_.encode() + "\n");
}

std::optional<ReviewSession> ReviewSession::resume(const Places& places, const Calendar& calendar) {
  std::string text;
  try {
    text = readFile(places.batch);
  } catch (const std::system_error& error) {
    if (error.code() == std::errc::no_such_file_or_directory) return std::nullopt;
    throw;
  }
  auto batch = ReviewBatch::decode(text);
  if (!batch) throw DamagedBatch(tr("{} can't be read as a review", places.batch.string()));
  const auto answered = AnsweredMoments::rampLabeledTickMs(places.labels);
  for (auto& item : batch->items)
    if (item.stage == Stage::blind && answered.contains(item.sample.atMs)) item.stage = Stage::revealed;
  ReviewSession session(std::move(*batch), places, calendar);
  if (!session.isFinished()) return session;
  session.keepPlace();  // its end could not be kept
  return std::nullopt;
}

const ReviewBatch::Item* ReviewSession::current() const {
  const auto found = std::ranges::find_if(batch_.items, isOpen);
  return found == batch_.items.end() ? nullptr : &*found;
}

const ReviewBatch::Item& ReviewSession::currentAt(Stage stage) const {
  const auto* item = current();
  if (!item || item->stage != stage) throw std::logic_error("the review is not there");
  return *item;
}

ReviewBatch::Item& ReviewSession::currentAt(Stage stage) {
  return const_cast<ReviewBatch::Item&>(std::as_const(*this).currentAt(stage));
}

std::optional<ReviewSession::Blind> ReviewSession::blind() const {
  const auto* item = current();
  if (!item) return std::nullopt;
  const auto& tick = item->sample.tick;
  return Blind{.atMs = item->sample.atMs,
               .frameMs = item->sample.frameInstant().ms,
               .declaredTask = tick.declaredTask,
               .frontmostApp = tick.frontmostApp,
               .windowTitle = tick.frontmostWindowTitle,
               .browserTitle = tick.browserTitle};
}

std::optional<ReviewSession::Reveal> ReviewSession::reveal() const {
  const auto* item = current();
  if (!item || item->stage != Stage::revealed) return std::nullopt;
  const auto& sample = item->sample;
  return Reveal{.answer = item->answer,
                .state = sample.tick.state.value_or(""),
                .reason = sample.tick.reason,
                .confidence = sample.tick.confidence,
                .decision = sample.decision,
                .stoodOutFor = sample.reasons,
                .question = sample.layer2Question()};
}

ReviewSession::Progress ReviewSession::progress() const {
  Progress told{.number = 1, .total = batch_.items.size()};
  for (const auto& item : batch_.items) {
    told.answered += item.stage == Stage::done || item.stage == Stage::revealed;
    told.skipped += item.stage == Stage::skipped;
    told.number += !isOpen(item);
  }
  return told;
}

void ReviewSession::submit(const ReviewBatch::Item& item, const RampLabelSubmission::Layer1& given) const {
  RampLabelSubmission::submitLayer1(given, item.sample, calendar_, places_.labels);
}

void ReviewSession::answer(Layer1Answer given, const std::optional<std::string>& comment, std::int64_t asOfMs) {
  auto& item = currentAt(Stage::blind);
  submit(item, {.answer = given, .comment = comment, .asOfMs = asOfMs});
  item.answer = given;
  moveTo(item, Stage::revealed);
}

void ReviewSession::revise(Layer1Answer given, const std::optional<std::string>& comment, std::int64_t asOfMs) {
  auto& item = currentAt(Stage::revealed);
  submit(item, {.answer = given, .answeredBlind = false, .comment = comment, .asOfMs = asOfMs});
  item.answer = given;
  keepPlace();
}

void ReviewSession::gradeReason(const ReasonLabelWriter::Judgement& judgement, std::int64_t asOfMs) const {
  const auto& sample = currentAt(Stage::revealed).sample;
  if (!sample.tick.reason || Text::isBlank(*sample.tick.reason)) throw std::logic_error("this verdict has no reason");
  ReasonLabelWriter::write({.judgement = judgement, .atMs = sample.atMs, .state = sample.tick.state, .asOfMs = asOfMs}, places_.reasonLabels);
}

void ReviewSession::answerGate(const Layer2Answer& given, const std::optional<std::string>& note, std::int64_t asOfMs) {
  auto& item = currentAt(Stage::revealed);
  match(
      given, [&](GateLabel label) { RampLabelSubmission::submitLayer2(label, item.sample, note, asOfMs, places_.gateLabels); },
      [&](GateGapLabelWriter::Label label) {
        RampLabelSubmission::submitLayer2Gap(label, item.sample, note, asOfMs, places_.gateGapLabels);
      });
  moveTo(item, Stage::done);
}

void ReviewSession::next() {
  const auto found = std::ranges::find_if(batch_.items, isOpen);
  if (found == batch_.items.end()) throw std::logic_error("the review is over");
  moveTo(*found, found->stage == Stage::blind ? Stage::skipped : Stage::done);
}

void ReviewSession::moveTo(ReviewBatch::Item& item, Stage stage) {
  item.stage = stage;
  keepPlace();
}

void ReviewSession::keepPlace() {
  placeFailure_.reset();
  try {
    if (isFinished()) std::filesystem::remove(places_.batch);
    else writeFileAtomically(places_.batch, batch_.encode() + "\n");
  } catch (const std::system_error& error) {
    placeFailure_ = error.what();
  }
}

}  // namespace halvo
