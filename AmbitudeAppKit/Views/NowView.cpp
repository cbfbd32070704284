#include "AmbitudeAppKit/Views/NowView.h"

#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

#include "AmbitudeAppKit/Views/DayStripView.h"
#include "AmbitudeAppKit/Views/Theme.h"
#include "AmbitudeAppKit/Views/Widgets.h"
#include "AmbitudeAppKit/Views/WrapRow.h"

namespace halvo {

using Widgets::qt;

NowView::NowView(DayFeed& feed, QWidget* parent) : Page(parent), feed_(feed) {
  auto* column = Widgets::scrollingColumn(this);
  column->addWidget(Widgets::heading(tr("Now")));
  column->addWidget(declarationCard());
  column->addWidget(dayCard());
  column->addWidget(quietCard());
  column->addStretch();
  connect(&feed_, &DayFeed::nowChanged, this, &NowView::refresh);
  refresh();
}

QFrame* NowView::declarationCard() {
  QVBoxLayout* column = nullptr;
  auto* card = Widgets::card(column);
  task_ = Widgets::text();
  Theme::setFont(task_, 1.35, true);
  clock_ = Widgets::note();
  why_ = Widgets::note();
  verdict_ = Widgets::text();
  failure_ = Widgets::text();
  line_ = new QLineEdit;
  line_->setObjectName("declare");
  line_->setPlaceholderText(tr("What do you mean to be doing? \"write the essay until 5pm\", \"break for 15 min\", \"clear\""));
  line_->setAccessibleName(tr("Declare what you mean to be doing, take a break, or clear"));
  connect(line_, &QLineEdit::returnPressed, this, &NowView::typed);
  auto* row = new QHBoxLayout;
  row->addWidget(line_, 1);
  row->addWidget(Widgets::primary(tr("Declare"), [this] { typed(); }));
  for (auto* widget : {task_, clock_, why_, verdict_}) column->addWidget(widget);
  column->addLayout(row);
  column->addWidget(failure_);
  failure_->setVisible(false);
  Widgets::setWarning(failure_, true);
  return card;
}

QFrame* NowView::dayCard() {
  QVBoxLayout* column = nullptr;
  auto* card = Widgets::card(column);
  column->addWidget(Widgets::subheading(tr("Today")));
  day_ = new DayStripView(feed_.config().calendar);
  day_->setObjectName("day");
  column->addWidget(day_);
  column->addWidget(Widgets::note(tr("Apps, then presence (strong: at the keyboard, faint: still, empty: away), then verdicts; "
                                     "● Lark asked, ▲ you declared, ■ quiet or cleared. Scroll to zoom.")));
  return card;
}

QFrame* NowView::quietCard() {
  QVBoxLayout* column = nullptr;
  auto* card = Widgets::card(column);
  column->addWidget(Widgets::subheading(tr("Quiet")));
  quiet_ = Widgets::text();
  column->addWidget(quiet_);
  quietChoices_ = new QWidget;
  auto* row = new WrapRow(quietChoices_);
  for (const auto& [duration, name] : RawValues<UserQuietDuration>::table) {
    const auto words = qt(Durations::label(duration));
    auto* choice = Widgets::button(
        words,
        [this, duration = duration] {
          act([duration, nowMs = feed_.config().nowMs(), calendar = feed_.config().calendar] {
            return PersonActions::quiet(duration, nowMs, calendar);
          });
        },
        tr("Quiet: %1").arg(words));
    choice->setObjectName(QString("quiet ") + name);
    row->addWidget(choice);
  }
  endQuiet_ = Widgets::button(tr("End quiet"), [this] {
    if (const auto& quiet = feed_.now().quiet)
      act([requestedMs = quiet->requestedMs, nowMs = feed_.config().nowMs()] { return PersonActions::endQuiet(requestedMs, nowMs); });
  });
  endQuiet_->setObjectName("end quiet");
  column->addWidget(quietChoices_);
  column->addWidget(endQuiet_, 0, Qt::AlignLeft);
  return card;
}

void NowView::refresh() {
  const auto& now = feed_.now();
  task_->setText(now.task.empty() ? tr("Nothing declared") : qt(now.task));
  clock_->setText(qt(now.clock));
  why_->setText(now.why.empty() ? QString() : tr("Because: %1").arg(qt(now.why)));
  verdict_->setText(qt(now.verdict));
  for (auto* label : {clock_, why_, verdict_}) label->setVisible(!label->text().isEmpty());
  Widgets::setWarning(clock_, now.isOverdue);
  quiet_->setText(now.quiet ? qt(now.quiet->words) : tr("Lark may speak up. Ask to be left alone:"));
  quietChoices_->setVisible(!now.quiet);
  endQuiet_->setVisible(now.quiet.has_value());
  day_->show(now.day);
}

void NowView::typed() {
  const auto nowMs = feed_.config().nowMs();
  const auto read = PersonActions::readTyped(Widgets::utf8(line_->text()), nowMs, feed_.config().calendar);
  if (read.kind == PersonActions::Typed::Kind::nothing) return;
  const auto words = line_->text();
  line_->clear();
  feed_.act(
      this, [read, nowMs] { return PersonActions::apply(read, nowMs); },
      [this, words](const PersonActions::Failure& failure) {
        tell(failure);
        if (failure) Widgets::giveBack(words, line_);
      });
}

void NowView::act(DayFeed::Deed deed) {
  feed_.act(this, std::move(deed), [this](const PersonActions::Failure& failure) { tell(failure); });
}

void NowView::tell(const PersonActions::Failure& failure) {
  failure_->setText(failure ? qt(*failure) : QString());
  failure_->setVisible(failure.has_value());
}

}  // namespace halvo
