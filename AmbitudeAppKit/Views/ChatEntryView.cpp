#include "AmbitudeAppKit/Views/ChatEntryView.h"

#include <algorithm>

#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

#include "AmbitudeAppKit/Views/Theme.h"
#include "AmbitudeAppKit/Views/Widgets.h"
#include "AmbitudeAppKit/Views/WrapRow.h"

namespace halvo {

using Widgets::qt;
using Kind = Conversation::Entry::Kind;

ChatEntryView::ChatEntryView(const Conversation::Entry& entry, const Calendar& calendar, const Acts& acts, QWidget* parent)
    : QWidget(parent) {
  auto* row = new QHBoxLayout(this);
  row->setContentsMargins(0, 0, 0, 0);
  const bool isSpeech = entry.kind == Kind::you || entry.kind == Kind::lark;
  if (entry.kind != Kind::lark) row->addStretch(isSpeech ? 1 : 0);
  row->addWidget(isSpeech ? bubble(entry, calendar) : line(entry, acts), isSpeech ? 4 : 1);
  if (entry.kind == Kind::lark) row->addStretch(1);
}

QWidget* ChatEntryView::bubble(const Conversation::Entry& entry, const Calendar& calendar) {
  QVBoxLayout* column = nullptr;
  auto* frame = Widgets::card(column);
  const bool isYours = entry.kind == Kind::you;
  Theme::follow(frame, [frame, isYours] {
    const auto& theme = Theme::current();
    frame->setStyleSheet(QString("QFrame[card=\"true\"] { background: %1; border: 1px solid %2; border-radius: %3px; }")
                             .arg(isYours ? theme.raised.name() : theme.surface.name(), theme.line.name())
                             .arg(Theme::scaled(10)));
  });
  // No wider than its longest line.
  const auto fit = [frame, column] {
    int width = 0;
    for (const auto* label : frame->findChildren<QLabel*>())
      if (!label->isHidden()) width = std::max(width, label->fontMetrics().size(0, label->text()).width());
    const auto sides = column->contentsMargins();
    frame->setMaximumWidth(width + sides.left() + sides.right() + Theme::scaled(6));
  };
  const auto who = isYours ? tr("You") : tr("Lark");
  auto* head = Widgets::note(tr("%1, %2").arg(who, qt(calendar.hourMinute(entry.tsMs))));
  Theme::setFont(head, 0.85);
  auto* words = Widgets::text(qt(entry.text));
  words->setAccessibleName(tr("%1 said: %2").arg(who, qt(entry.text)));
  column->addWidget(head);
  column->addWidget(words);
  if (!entry.servedBy.empty()) column->addWidget(Widgets::note(qt(entry.servedBy)));
  if (!entry.thinking.empty()) {
    auto* thoughts = Widgets::note(qt(entry.thinking));
    thoughts->setVisible(false);
    const auto turn = [thoughts, fit] { thoughts->setVisible(thoughts->isHidden()), fit(); };
    auto* fold = Widgets::link(tr("Thinking…"), turn, tr("Show or hide what Lark thought"));
    column->addWidget(fold, 0, Qt::AlignLeft);
    column->addWidget(thoughts);
  }
  Theme::follow(frame, fit);
  return frame;
}

QWidget* ChatEntryView::line(const Conversation::Entry& entry, const Acts& acts) {
  auto* holder = new QWidget;
  auto* column = new QVBoxLayout(holder);
  column->setContentsMargins(0, 0, 0, 0);
  auto* row = new QHBoxLayout;
  column->addLayout(row);
  Theme::follow(row, [row] { row->setContentsMargins(Theme::scaled(8), 0, Theme::scaled(8), 0); });
  auto* words = Widgets::note(qt(entry.text));
  if (entry.kind == Kind::day) words->setAlignment(Qt::AlignCenter), Theme::setFont(words, 0.9, true);
  if (entry.kind == Kind::notice) words->setProperty("muted", false), words->setProperty("tone", "warning");
  row->addWidget(words, 1);
  if (entry.undo)
    row->addWidget(Widgets::link(tr("Undo"), [what = *entry.undo, act = acts.undo] { act(what); }, tr("Undo: %1").arg(qt(entry.text))));
  if (entry.answers.empty()) return holder;
  auto* choices = new QWidget;
  auto* chips = new WrapRow(choices);
  for (const auto& [label, hint] : entry.answers) {
    auto* chip = Widgets::button(qt(label), [label = qt(label), say = acts.say] { say(label); }, tr("Answer: %1. %2").arg(qt(label), qt(hint)));
    chip->setToolTip(qt(hint));
    chips->addWidget(chip);
  }
  column->addWidget(choices);
  return holder;
}

}  // namespace halvo
