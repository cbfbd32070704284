#include "AmbitudeAppKit/Present/ReviewDesk.h"

#include <exception>
#include <stdexcept>

#include "AmbitudeCore/Review/ReviewDraw.h"
#include "AmbitudeCore/Review/ReviewScore.h"
#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/EventLog/EventLogReader.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Foundation/Translation.h"
#include "CaptureShared/Labels/LabelHistory.h"

namespace halvo {

namespace {

using Step = ReviewPage::Step;
using Reason = ReviewPage::Reason;

constexpr auto notKept = trMark("Your answer could not be kept. Give it again. ");
constexpr auto notDrawn = trMark("No review could be drawn. ");

std::optional<std::string> wordsOf(const std::string& text) {
  auto words = Text::scrubbed(Text::trim(text));
  return words.empty() ? std::nullopt : std::optional(std::move(words));
}

}  // namespace

ReviewPage ReviewDesk::page() {
  if (!session_) return {};
  auto page = ReviewPage::of(*session_, reason_, config_.calendar);
  if (session_->placeFailure())
    page.failure = tr("What you answered is kept, your place in this review is not. {}", *session_->placeFailure());
  if (page.step != Step::finished) return page;
  try {
    page.score = score();
  } catch (const std::exception& error) {
    page.failure = tr("The score could not be made. {}", error.what());
  }
  return page;
}

ReviewPage ReviewDesk::after(const std::function<void()>& change, const char* failed) {
  std::string failure;
  try {
    change();
  } catch (const std::exception& error) {
    failure = tr(failed) + error.what();
  }
  auto shown = page();
  if (!failure.empty()) shown.failure = failure;
  return shown;
}

ReviewPage ReviewDesk::open() {
  return after(
      [this] {
        if (session_ && !session_->isFinished()) return;
        reason_ = Reason::open;
        ReviewDraw::makeLabels(config_.root);
        session_ = ReviewSession::resume(ReviewSession::Places::under(config_.root), config_.calendar);
      },
      trMark("The review that was left could not be opened. "));
}

ReviewPage ReviewDesk::draw(const Draw& wanted, const OnProgress& onProgress) {
  std::string none;
  auto shown = after(
      [&] {
        auto drawn = ReviewDraw::draw({.root = config_.root,
                                       .mode = wanted.mode,
                                       .limit = wanted.limit,
                                       .asOfMs = config_.nowMs(),
                                       .isRenderable = wanted.footage == Footage::needed ? config_.isRenderable : nullptr,
                                       .onProgress =
                                           [&](const auto& phase) { onProgress(RampSampleSelector::RampLoadPhase::text(phase)); }},
                                      config_.calendar);
        if (!drawn) {
          none = wanted.footage == Footage::needed ? tr("There is no moment of the last two days that footage can be shown of.")
                                                   : tr("There is no moment of the last two days to ask about.");
          return;
        }
        session_ = std::move(drawn);
        reason_ = Reason::open;
      },
      notDrawn);
  if (!none.empty()) shown.notice = none;
  return shown;
}

void ReviewDesk::answer(std::size_t place, const std::optional<std::string>& words) {
  const auto shown = ReviewPage::of(*session_, reason_, config_.calendar);
  if (place >= shown.choices.size()) throw std::out_of_range(tr("There is no such choice."));
  const auto nowMs = config_.nowMs();
  switch (shown.step) {
    case Step::blind: return session_->answer(RawValues<ReviewSession::Layer1Answer>::table[place].first, words, nowMs);
    case Step::reason:
      session_->gradeReason(ReviewWords::judgements()[place], nowMs);
      reason_ = Reason::settled;
      return;
    case Step::gate:
      session_->answerGate(ReviewWords::choices(*session_->reveal()->question)[place], words, nowMs);
      reason_ = Reason::open;
      return;
    case Step::start:
    case Step::seen:
    case Step::finished: return;
  }
}

ReviewPage ReviewDesk::choose(std::size_t place, const std::string& words) {
  if (!session_) return {};
  return after([&] { answer(place, wordsOf(words)); }, notKept);
}

ReviewPage ReviewDesk::revise(std::size_t place, const std::string& words) {
  if (!session_) return {};
  return after(
      [&] {
        const auto& table = RawValues<ReviewSession::Layer1Answer>::table;
        if (place >= table.size()) throw std::out_of_range(tr("There is no such choice."));
        session_->revise(table[place].first, wordsOf(words), config_.nowMs());
      },
      notKept);
}

ReviewPage ReviewDesk::pass() {
  if (!session_ || session_->isFinished()) return page();
  return after(
      [this] {
        if (ReviewPage::of(*session_, reason_, config_.calendar).step == Step::reason) {
          reason_ = Reason::settled;
          return;
        }
        session_->next();
        reason_ = Reason::open;
      },
      "");
}

ReviewWords::Score ReviewDesk::score() const {
  constexpr auto evidence = ReviewScore::Evidence::blindRandom;
  std::vector<ClassifierTick> ticks;
  const auto log = DataPaths::checkerLog(config_.root);
  if (std::filesystem::exists(log)) ticks = ClassifierLogReader::read(log);
  return ReviewWords::of(ReviewScore::score(LabelHistory::read(DataPaths::labelsDB(config_.root)), ticks, evidence), evidence);
}

}  // namespace halvo
