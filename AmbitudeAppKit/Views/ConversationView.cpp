#include "AmbitudeAppKit/Views/ConversationView.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QScrollArea>
#include <QScrollBar>
#include <QVBoxLayout>

#include "AmbitudeAppKit/Views/ChatEntryView.h"
#include "AmbitudeAppKit/Views/Theme.h"
#include "AmbitudeAppKit/Views/Widgets.h"
#include "CaptureShared/Foundation/Match.h"

namespace halvo {

using Widgets::qt;

ConversationView::ConversationView(DayFeed& feed, std::size_t atMost, QWidget* parent) : Page(parent), feed_(feed), atMost_(atMost) {
  auto* whole = new QVBoxLayout(this);
  const bool isPage = atMost_ > 20;  // and not the popup
  Theme::setMargins(whole, isPage ? 24 : 18);
  if (isPage) whole->addWidget(Widgets::heading(tr("Conversation")));
  area_ = new QScrollArea;
  area_->setWidgetResizable(true);
  area_->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  area_->setAccessibleName(tr("Conversation with Lark"));
  auto* content = new QWidget;
  auto* column = new QVBoxLayout(content);
  column->setContentsMargins(0, 0, 0, 0);
  column->addStretch();
  list_ = new QVBoxLayout;
  Theme::setSpacing(list_, 8);
  column->addLayout(list_);
  reply_ = Widgets::text();
  reply_->setObjectName("reply");
  reply_->setVisible(false);
  column->addWidget(reply_);
  area_->setWidget(content);
  whole->addWidget(area_, 1);
  failure_ = Widgets::text();
  failure_->setVisible(false);
  whole->addWidget(failure_);
  auto* row = new QHBoxLayout;
  input_ = new QLineEdit;
  input_->setObjectName("say");
  input_->setPlaceholderText(tr("Say something to Lark"));
  input_->setAccessibleName(tr("Say something to Lark"));
  connect(input_, &QLineEdit::returnPressed, this, &ConversationView::send);
  row->addWidget(input_, 1);
  row->addWidget(Widgets::primary(tr("Send"), [this] { send(); }));
  whole->addLayout(row);

  auto* bar = area_->verticalScrollBar();
  connect(bar, &QScrollBar::valueChanged, this, [this, bar] { isAtEnd_ = bar->value() >= bar->maximum() - Theme::scaled(40); });
  connect(bar, &QScrollBar::rangeChanged, this, [this] { keepAtEnd(); });
  connect(&feed_, &DayFeed::conversationChanged, this, &ConversationView::refresh);
  connect(&feed_, &DayFeed::replyChanged, this, &ConversationView::showReply);
  refresh();
}

void ConversationView::keepAtEnd() {
  if (isAtEnd_) area_->verticalScrollBar()->setValue(area_->verticalScrollBar()->maximum());
}

void ConversationView::refresh() {
  const auto& all = feed_.conversation().entries;
  const auto from = all.size() > atMost_ ? all.size() - atMost_ : 0;
  const std::span entries(all.begin() + static_cast<std::ptrdiff_t>(from), all.end());
  // What grew at the end is added; anything else (an undo that ended, an earlier day) is shown anew.
  const bool onlyGrew = shownEntries_.size() <= entries.size() && std::equal(shownEntries_.begin(), shownEntries_.end(), entries.begin());
  const auto already = onlyGrew ? shownEntries_.size() : 0;
  if (!onlyGrew) Widgets::clear(list_);
  if (already == 0 && atMost_ > 20 && list_->count() == 0)
    list_->addWidget(Widgets::link(tr("Show earlier days"), [this] { feed_.showEarlier(); }), 0, Qt::AlignHCenter);
  for (const auto& entry : entries.subspan(already)) addEntry(entry);
  shownEntries_.assign(entries.begin(), entries.end());
}

void ConversationView::addEntry(const Conversation::Entry& entry) {
  list_->addWidget(new ChatEntryView(entry, feed_.config().calendar,
                                     {.undo = [this](const Conversation::Undo& what) { undo(what); }, .say = [this](const QString& words) { say(words); }}));
}

void ConversationView::showReply(const std::optional<LiveReply::Shown>& reply) {
  reply_->setVisible(reply.has_value());
  if (!reply) return;
  reply_->setText(reply->text.empty() ? tr("Lark is thinking…") : tr("Lark: %1").arg(qt(reply->text)));
}

void ConversationView::send() {
  const auto words = input_->text();
  if (words.trimmed().isEmpty()) return;
  input_->clear();
  say(words, [this, words] { Widgets::giveBack(words, input_); });
}

void ConversationView::say(const QString& words, std::function<void()> ifItFails) {
  feed_.act(
      this, [text = Widgets::utf8(words)] { return PersonActions::say(text); },
      [this, ifItFails = std::move(ifItFails)](const PersonActions::Failure& failure) {
        tell(failure);
        if (failure) return ifItFails ? ifItFails() : void();
        isAtEnd_ = true;
        emit said();
      });
}

void ConversationView::undo(const Conversation::Undo& what) {
  const auto act = [what, nowMs = feed_.config().nowMs(), calendar = feed_.config().calendar] {
    return match(
        what,
        [&](const Conversation::TakeBackDeclaration& back) { return PersonActions::takeBackDeclaration(back.declaredMs, nowMs, calendar); },
        [&](const Conversation::EndQuiet& quiet) { return PersonActions::endQuiet(quiet.requestedMs, nowMs); },
        [&](const Conversation::ForgetCorrection& correction) { return PersonActions::forgetCorrection(correction.atMs); });
  };
  feed_.act(this, act, [this](const PersonActions::Failure& failure) { tell(failure); });
}

void ConversationView::tell(const std::optional<std::string>& failure) {
  failure_->setText(failure ? qt(*failure) : QString());
  failure_->setVisible(failure.has_value());
}

}  // namespace halvo
