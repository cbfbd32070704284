#include "AmbitudeAppKit/Present/ReviewPage.h"

#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Foundation/Translation.h"

namespace halvo {

namespace {

using Step = ReviewPage::Step;

Step stepOf(const std::optional<ReviewSession::Reveal>& told, ReviewPage::Reason reason) {
  if (!told) return Step::blind;
  if (reason == ReviewPage::Reason::open && told->reason && !Text::isBlank(*told->reason)) return Step::reason;
  return told->question && !ReviewWords::choices(*told->question).empty() ? Step::gate : Step::seen;
}

/// The question of a step and what may be answered.
void ask(ReviewPage& page, const std::optional<ReviewSession::Reveal>& told) {
  switch (page.step) {
    case Step::blind:
      page.question = tr("What was really going on?");
      page.choices = ReviewPage::firstChoices();
      return;
    case Step::reason:
      page.question = tr("Was the reason given for the verdict right?");
      for (const auto& judgement : ReviewWords::judgements()) page.choices.push_back({ReviewWords::name(judgement)});
      return;
    case Step::gate:
      page.question = tr("Was the gate right?");
      for (const auto& answer : ReviewWords::choices(*told->question)) page.choices.push_back({ReviewWords::name(answer)});
      return;
    case Step::start:
    case Step::seen:
    case Step::finished: return;
  }
}

}  // namespace

std::vector<ReviewPage::Choice> ReviewPage::firstChoices() {
  std::vector<Choice> choices;
  for (const auto& [answer, stored] : RawValues<ReviewSession::Layer1Answer>::table)
    choices.push_back({ReviewWords::name(answer), RampLabelSubmission::hint(answer).value_or("")});
  return choices;
}

ReviewPage ReviewPage::of(const ReviewSession& session, Reason reason, const Calendar& calendar) {
  const auto progress = session.progress();
  const auto moment = session.blind();
  ReviewPage page{.notice = session.starvationNotice().value_or("")};
  if (!moment) {
    page.step = Step::finished;
    page.progress = tr("{} answered, {} passed over", progress.answered, progress.skipped);
    return page;
  }
  const auto told = session.reveal();
  page.step = stepOf(told, reason);
  page.progress = tr("{} of {}", progress.number, progress.total);
  page.moment = Moment{.atMs = moment->atMs,
                       .frameMs = moment->frameMs,
                       .when = ReviewWords::when(moment->atMs, calendar),
                       .declared = ReviewWords::declared(*moment),
                       .inFront = ReviewWords::inFront(*moment)};
  if (told)
    page.revealed = Revealed{.answer = told->answer ? ReviewWords::name(*told->answer) : "",
                             .verdict = ReviewWords::verdict(*told),
                             .gate = ReviewWords::gate(*told, calendar)};
  ask(page, told);
  return page;
}

}  // namespace halvo
