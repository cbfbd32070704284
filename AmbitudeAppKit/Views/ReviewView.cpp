#include "AmbitudeAppKit/Views/ReviewView.h"

#include <exception>

#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QFrame>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QSpinBox>
#include <QTableWidget>
#include <QVBoxLayout>

#include "AmbitudeAppKit/Views/Background.h"
#include "AmbitudeAppKit/Views/ClipView.h"
#include "AmbitudeAppKit/Views/Theme.h"
#include "AmbitudeAppKit/Views/Widgets.h"
#include "AmbitudeAppKit/Views/WrapRow.h"
#include "CaptureShared/Foundation/Clock.h"

namespace halvo {

using Widgets::qt, Widgets::utf8;
using Step = ReviewPage::Step;

namespace {

/// A clip, or why there is none.
struct Made {
  std::optional<ClipView::Clip> clip = {};
  MomentClip told = {};
  std::string failure = {};
};

}  // namespace

ReviewView::ReviewView(Operations operations, QWidget* parent)
    : Page(parent), operations_(std::move(operations)), desk_(std::make_shared<ReviewDesk>(operations_.desk)) {
  setFocusPolicy(Qt::StrongFocus);
  column_ = Widgets::scrollingColumn(this);
  auto* head = new QHBoxLayout;
  progress_ = Widgets::note();
  progress_->setObjectName("progress");
  progress_->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
  head->addWidget(Widgets::heading(tr("Review")));
  head->addWidget(progress_, 1);
  another_ = Widgets::link(tr("Another review…"), [this] { start_->setVisible(isChoosing_ = !isChoosing_); });
  another_->setObjectName("another");
  another_->setVisible(false);
  head->addWidget(another_);
  column_->addLayout(head);
  failure_ = Widgets::text();
  Widgets::setWarning(failure_, true);
  notice_ = Widgets::note();
  busy_ = Widgets::note();
  for (auto* label : {failure_, notice_, busy_}) {
    label->setVisible(false);
    column_->addWidget(label);
  }
  addStart(column_);
  addMoment(column_);
  addQuestion(column_);
  addEnd(column_);
  column_->addStretch();
  for (auto* part : {moment_, reveal_, question_, end_, start_}) part->setVisible(false);
  Theme::follow(this, [this] { showQuestion(); });
}

ReviewView::~ReviewView() { dropClip(); }

void ReviewView::addStart(QVBoxLayout* column) {
  QVBoxLayout* card = nullptr;
  column->addWidget(start_ = Widgets::card(card));
  card->addWidget(Widgets::text(tr("Moments of the last two days are drawn. You say what was really going on before you see what Halvo "
                                   "made of each. Your answers stay on this machine.")));
  mode_ = new QComboBox;
  mode_->setAccessibleName(tr("Which moments"));
  for (const auto& [mode, stored] : RawValues<RampSampleSelector::SamplingMode>::table)
    mode_->addItem(qt(RampSampleSelector::settingsLabel(mode)), static_cast<int>(mode));
  limit_ = new QSpinBox;
  limit_->setObjectName("limit");
  limit_->setAccessibleName(tr("How many moments"));
  limit_->setRange(1, 1000);
  limit_->setValue(20);
  withoutFootage_ = new QCheckBox(tr("Also moments without a recording"));
  withoutFootage_->setObjectName("without footage");
  auto* form = new QFormLayout;
  form->setFieldGrowthPolicy(QFormLayout::FieldsStayAtSizeHint);
  form->setRowWrapPolicy(QFormLayout::WrapLongRows);
  form->addRow(tr("Which moments"), mode_);
  form->addRow(tr("How many"), limit_);
  form->addRow(withoutFootage_);
  card->addLayout(form);
  auto* draw = Widgets::primary(tr("Start a review"), [this] { this->draw(); });
  draw->setObjectName("draw");
  card->addWidget(draw, 0, Qt::AlignLeft);
}

void ReviewView::addMoment(QVBoxLayout* column) {
  QVBoxLayout* card = nullptr;
  column->addWidget(moment_ = Widgets::card(card));
  when_ = Widgets::subheading({});
  declared_ = Widgets::text();
  inFront_ = Widgets::text();
  clip_ = new ClipView;
  clipWords_ = Widgets::note();
  clipWords_->setObjectName("clip");
  for (auto* label : {when_, declared_, inFront_}) card->addWidget(label);
  card->addWidget(clip_, 1);
  card->addWidget(clipWords_);
  connect(clip_, &ClipView::failed, this, [this](const QString& words) {
    showClip(false);
    clipWords_->setText(words);
  });
}

void ReviewView::addQuestion(QVBoxLayout* column) {
  column->addWidget(reveal_ = Widgets::card(revealed_));
  QVBoxLayout* card = nullptr;
  column->addWidget(question_ = Widgets::card(card));
  asked_ = new QVBoxLayout;
  Theme::setSpacing(asked_, 8);
  card->addLayout(asked_);
  comment_ = new QLineEdit;
  comment_->setObjectName("comment");
  comment_->setAccessibleName(tr("Your own words about this moment"));
  comment_->setPlaceholderText(tr("In your own words, if you like (C)"));
  connect(comment_, &QLineEdit::returnPressed, this, [this] { setFocus(); });
  card->addWidget(comment_);
  auto* actions = new WrapRow;
  pass_ = Widgets::button({}, [this] { pass(); });
  pass_->setObjectName("pass");
  revise_ = Widgets::link({}, [this] { setRevising(!isRevising_); });
  revise_->setObjectName("revise");
  actions->addWidget(pass_);
  actions->addWidget(revise_);
  card->addLayout(actions);
}

void ReviewView::addEnd(QVBoxLayout* column) {
  QVBoxLayout* card = nullptr;
  column->addWidget(end_ = Widgets::card(card));
  summary_ = Widgets::subheading({});
  QStringList headers;
  for (const auto& header : ReviewWords::Score::headers()) headers << qt(header);
  score_ = Widgets::table(headers, tr("How often verdicts agreed with your blind answers, by state"));
  scoreLines_ = Widgets::note();
  card->addWidget(summary_);
  card->addWidget(score_);
  card->addWidget(scoreLines_);
}

void ReviewView::shown() {
  if (isBusy_) return;
  run([](ReviewDesk& desk, const std::stop_token&) { return desk.open(); }, After::look);
}

void ReviewView::run(Work work, After after) {
  if (std::exchange(isBusy_, true)) return;
  inBackground(
      work_, this, [desk = desk_, work = std::move(work)](const std::stop_token& stop) { return work(*desk, stop); },
      [this, after](const ReviewPage& page) {
        isBusy_ = false;
        busy_->setVisible(false);
        show(page, after);
      });
}

bool ReviewView::mayGiveUp() {
  QMessageBox ask(QMessageBox::Question, tr("Draw another review?"),
                  tr("The one that is open (%1) is given up for it: what you answered is kept, what is left of it is not asked any more.")
                      .arg(qt(page_.progress)),
                  QMessageBox::Cancel, this);
  auto* sure = ask.addButton(tr("Draw another"), QMessageBox::AcceptRole);
  ask.exec();
  return ask.clickedButton() == sure;
}

void ReviewView::draw() {
  if (isAsking() && !mayGiveUp()) return;
  const ReviewDesk::Draw wanted{.mode = static_cast<RampSampleSelector::SamplingMode>(mode_->currentData().toInt()),
                                .limit = limit_->value(),
                                .footage = withoutFootage_->isChecked() ? ReviewDesk::Footage::optional : ReviewDesk::Footage::needed};
  const auto tell = [view = QPointer<ReviewView>(this)](const std::string& words) {
    QMetaObject::invokeMethod(
        qApp,
        [view, words] {
          if (!view || !view->isBusy_) return;
          view->busy_->setText(qt(words));
          view->busy_->setVisible(true);
        },
        Qt::QueuedConnection);
  };
  run(
      [wanted, tell](ReviewDesk& desk, const std::stop_token& stop) {
        return desk.draw(wanted, [&](const std::string& words) {
          throwIfStopped(stop);
          tell(words);
        });
      },
      After::act);
}

void ReviewView::show(const ReviewPage& page, After after) {
  const bool isSame = page == page_ && (start_->isVisibleTo(this) || page.step != Step::start);
  if (page.moment != page_.moment) isChoosing_ = false;
  page_ = page;
  if (isSame) return followClip();
  isRevising_ = false;
  if (after == After::act && page.failure.empty()) comment_->clear();  // what could not be kept stays
  progress_->setText(page.step == Step::finished ? QString() : qt(page.progress));
  failure_->setText(qt(page.failure));
  failure_->setVisible(!page.failure.empty());
  notice_->setText(qt(page.notice));
  notice_->setVisible(!page.notice.empty());
  start_->setVisible(isChoosing_ || page.step == Step::start || page.step == Step::finished);
  another_->setVisible(page.moment.has_value());
  moment_->setVisible(page.moment.has_value());
  if (page.moment) {
    when_->setText(qt(page.moment->when));
    declared_->setText(tr("You meant to: %1").arg(qt(page.moment->declared)));
    inFront_->setText(tr("In front: %1").arg(qt(page.moment->inFront)));
  }
  showReveal(page);
  showQuestion();
  showEnd(page);
  followClip();
  if (after == After::act && isAsking()) setFocus();
}

void ReviewView::showReveal(const ReviewPage& page) {
  Widgets::clear(revealed_);
  reveal_->setVisible(page.revealed.has_value());
  if (!page.revealed) return;
  if (!page.revealed->answer.empty()) revealed_->addWidget(Widgets::text(tr("You said: %1").arg(qt(page.revealed->answer))));
  revealed_->addWidget(Widgets::text(tr("The verdict: %1").arg(qt(page.revealed->verdict))));
  if (!page.revealed->gate.empty()) revealed_->addWidget(Widgets::text(qt(page.revealed->gate)));
}

bool ReviewView::isAsking() const { return page_.moment.has_value(); }

std::vector<ReviewPage::Choice> ReviewView::choices() const { return isRevising_ ? ReviewPage::firstChoices() : page_.choices; }

void ReviewView::showQuestion() {
  Widgets::clear(asked_);
  question_->setVisible(isAsking());
  if (!isAsking()) return;
  if (const auto words = isRevising_ ? tr("The other answer, which won't count as a blind one") : qt(page_.question); !words.isEmpty())
    asked_->addWidget(Widgets::subheading(words));
  const auto offered = choices();
  auto* box = new QWidget;
  auto* grid = new QGridLayout(box);
  grid->setContentsMargins(0, 0, 0, 0);
  const bool isNarrow = Theme::scaled(100) > 140;
  const auto perColumn = isNarrow ? offered.size() : (offered.size() + 1) / 2;
  int behind = 1;  // what takes the rest of the width: the hints, or nothing
  for (std::size_t i = 0; i < offered.size(); ++i) {
    const auto words = qt(offered[i].words), hint = qt(offered[i].hint);
    auto* button = Widgets::button(tr("%1  %2").arg(i + 1).arg(words), [this, i] { choose(i); },
                                   hint.isEmpty() ? words : tr("%1: %2").arg(words, hint));
    button->setObjectName(QString("choice %1").arg(i + 1));
    button->setStyleSheet("text-align: left");
    const auto row = static_cast<int>(i % perColumn), column = 2 * static_cast<int>(i / perColumn);
    grid->addWidget(button, row, column);
    if (!hint.isEmpty()) {
      grid->addWidget(Widgets::note(hint), row, column + 1);
      grid->setColumnStretch(column + 1, 1);
    }
    behind = column + 1;
  }
  grid->setColumnStretch(behind, 1);
  asked_->addWidget(box);
  const auto step = page_.step;
  comment_->setVisible(isRevising_ || step == Step::blind || step == Step::gate);
  pass_->setVisible(!isRevising_);
  pass_->setText(step == Step::blind ? tr("S  pass over") : step == Step::seen ? tr("Return  next moment") : tr("S  go on without"));
  pass_->setAccessibleName(step == Step::blind  ? tr("Pass over this moment")
                           : step == Step::seen ? tr("Next moment")
                                                : tr("Go on without an answer"));
  revise_->setVisible(step != Step::blind);
  revise_->setText(isRevising_ ? tr("Esc  leave it as it was") : tr("R  change my answer"));
  revise_->setAccessibleName(isRevising_ ? tr("Leave my answer as it was") : tr("Change my answer"));
}

void ReviewView::showEnd(const ReviewPage& page) {
  end_->setVisible(page.step == Step::finished);
  if (page.step != Step::finished) return;
  summary_->setText(tr("Done: %1").arg(qt(page.progress)));
  const auto score = page.score.value_or(ReviewWords::Score());
  std::vector<QStringList> rows;
  for (const auto& cells : score.rows) {
    QStringList row;
    for (const auto& cell : cells) row << qt(cell);
    rows.push_back(row);
  }
  Widgets::fill(score_, rows);
  QStringList lines;
  for (const auto& line : score.lines) lines << qt(line);
  scoreLines_->setText(lines.join('\n'));
}

void ReviewView::choose(std::size_t place) {
  if (!isAsking() || place >= choices().size()) return;
  const auto words = utf8(comment_->text());
  run(
      [place, words, isRevising = isRevising_](ReviewDesk& desk, const std::stop_token&) {
        return isRevising ? desk.revise(place, words) : desk.choose(place, words);
      },
      After::act);
}

void ReviewView::pass() {
  run([](ReviewDesk& desk, const std::stop_token&) { return desk.pass(); }, After::act);
}

void ReviewView::setRevising(bool isRevising) {
  if (isBusy_ || !page_.revealed || isRevising == isRevising_) return;
  isRevising_ = isRevising;
  showQuestion();
  setFocus();
}

void ReviewView::keyPressEvent(QKeyEvent* event) {
  const auto key = event->key();
  if (!isAsking() || (event->modifiers() & ~Qt::KeypadModifier) != Qt::NoModifier) return Page::keyPressEvent(event);
  if (key >= Qt::Key_1 && key <= Qt::Key_9) return choose(static_cast<std::size_t>(key - Qt::Key_1));
  switch (key) {
    case Qt::Key_Space: return clip_->togglePause();
    case Qt::Key_Left: return clip_->step(-1);
    case Qt::Key_Right: return clip_->step(1);
    case Qt::Key_R: return setRevising(true);
    case Qt::Key_Escape: return isRevising_ ? setRevising(false) : setFocus();
    case Qt::Key_C: return comment_->setFocus();
    case Qt::Key_S:
      if (!isRevising_ && page_.step != Step::seen) pass();
      return;
    case Qt::Key_Return:
    case Qt::Key_Enter:
      if (!isRevising_ && page_.step == Step::seen) pass();
      return;
    default: Page::keyPressEvent(event);
  }
}

void ReviewView::hideEvent(QHideEvent* event) {
  Page::hideEvent(event);
  if (event->spontaneous()) clip_->pause();  // the window is iconified
  else dropClip();
}

void ReviewView::showEvent(QShowEvent* event) {
  Page::showEvent(event);
  followClip();
}

void ReviewView::followClip() {
  if (!isVisible()) return;
  if (!page_.moment) return dropClip();
  if (clipMs_ != page_.moment->frameMs) makeClip(page_.moment->frameMs);
}

void ReviewView::dropClip() {
  clipEnd_.request_stop();
  clip_->stop();
  if (!std::exchange(clipMs_, std::nullopt)) return;
  clips_.post([drop = operations_.dropClip](const std::stop_token&) { drop(); });
}

void ReviewView::showClip(bool isThere) {
  clip_->setVisible(isThere);
  column_->setStretchFactor(moment_, isThere ? 1 : 0);  // it takes what room there is
}

void ReviewView::makeClip(std::int64_t frameMs) {
  clipEnd_.request_stop();
  clipEnd_ = std::stop_source();
  clip_->stop();
  showClip(true);
  clipWords_->setText(tr("Making the clip…"));
  clipMs_ = frameMs;
  inBackground(
      clips_, this,
      [operations = operations_, frameMs, end = clipEnd_](const std::stop_token& stop) mutable -> Made {
        const std::stop_callback linked(stop, [&end] { end.request_stop(); });
        try {
          throwIfStopped(end.get_token());
          const auto clip = operations.makeClip(frameMs, end.get_token());
          return {.clip = ClipView::Clip{.ffmpeg = operations.ffmpeg(), .file = clip.file, .fps = clip.fps, .frameCount = clip.frameCount},
                  .told = clip};
        } catch (const std::exception& error) {
          return {.failure = error.what()};
        }
      },
      [this, frameMs, end = clipEnd_.get_token()](const Made& made) {
        if (end.stop_requested() || clipMs_ != frameMs) return;
        showClip(made.clip.has_value());
        if (!made.clip) return clipWords_->setText(tr("No clip: %1").arg(qt(made.failure)));
        clipWords_->setText(tr("%1 s, of what was recorded from %2 on; %3 % gaps. Space pauses, ← and → step.")
                                .arg(made.told.frameCount / made.told.fps, 0, 'f', 0)
                                .arg(qt(operations_.desk.calendar.hourMinute(made.told.fromMs)))
                                .arg(100 * made.told.gapShare, 0, 'f', 0));
        clip_->play(*made.clip);
      });
}

}  // namespace halvo
