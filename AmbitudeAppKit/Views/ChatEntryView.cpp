#include "AmbitudeAppKit/Views/ChatEntryView.h"

#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

#include "AmbitudeAppKit/Views/Theme.h"
#include "AmbitudeAppKit/Views/Widgets.h"

namespace halvo {

using Widgets::qt;
using Kind = Conversation::Entry::Kind;

ChatEntryView::ChatEntryView(const Conversation::Entry& entry, const Calendar& calendar, std::function<void(const Conversation::Undo&)> undo,
                             QWidget* parent)
    : QWidget(parent) {
  auto* row = new QHBoxLayout(this);
  row->setContentsMargins(0, 0, 0, 0);
  const bool isSpeech = entry.kind == Kind::you || entry.kind == Kind::lark;
  if (entry.kind != Kind::lark) row->addStretch(isSpeech ? 1 : 0);
  row->addWidget(isSpeech ? bubble(entry, calendar) : line(entry, std::move(undo)), isSpeech ? 4 : 1);
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
    auto* fold = Widgets::link(tr("Thinking…"), [thoughts] { thoughts->setVisible(thoughts->isHidden()); }, tr("Show or hide what Lark thought"));
    column->addWidget(fold, 0, Qt::AlignLeft);
    column->addWidget(thoughts);
  }
  return frame;
}

QWidget* ChatEntryView::line(const Conversation::Entry& entry, std::function<void(const Conversation::Undo&)> undo) {
  auto* holder = new QWidget;
  auto* row = new QHBoxLayout(holder);
  Theme::follow(row, [row] { row->setContentsMargins(Theme::scaled(8), 0, Theme::scaled(8), 0); });
  auto* words = Widgets::note(qt(entry.text));
  if (entry.kind == Kind::day) words->setAlignment(Qt::AlignCenter), Theme::setFont(words, 0.9, true);
  if (entry.kind == Kind::notice) words->setProperty("muted", false), words->setProperty("tone", "warning");
  row->addWidget(words, 1);
  if (entry.undo)
    row->addWidget(Widgets::link(tr("Undo"), [what = *entry.undo, act = std::move(undo)] { act(what); }, tr("Undo: %1").arg(qt(entry.text))));
  return holder;
}

}  // namespace halvo
