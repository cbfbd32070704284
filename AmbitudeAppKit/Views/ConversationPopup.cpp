#include "AmbitudeAppKit/Views/ConversationPopup.h"

#include <QCloseEvent>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QScreen>
#include <QVBoxLayout>

#include "AmbitudeAppKit/Views/ConversationView.h"
#include "AmbitudeAppKit/Views/Theme.h"

namespace halvo {

namespace {

constexpr std::size_t entriesShown = 6;

}  // namespace

ConversationPopup::ConversationPopup(DayFeed& feed)
    : QWidget(nullptr, Qt::Window | Qt::WindowStaysOnTopHint | Qt::CustomizeWindowHint | Qt::WindowTitleHint | Qt::WindowCloseButtonHint),
      feed_(feed) {
  setAttribute(Qt::WA_ShowWithoutActivating);
  setAttribute(Qt::WA_QuitOnClose, false);
  setObjectName("popup");
  setWindowTitle(tr("Lark"));
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(0, 0, 0, 0);
  conversation_ = new ConversationView(feed_, entriesShown);
  column->addWidget(conversation_);
  Theme::follow(this, [this] { resize(Theme::scaled(400), Theme::scaled(340)); });
  connect(conversation_, &ConversationView::said, this, [this] { end(PersonActions::Dismissal::answered); });
  connect(&feed_, &DayFeed::conversationChanged, this, &ConversationPopup::follow);
  follow();
}

void ConversationPopup::follow() {
  const auto& conversation = feed_.conversation();
  if (!conversation.isOpen && !isWished_) return hide();
  // Answered elsewhere.
  if (isVisible() && !isWished_ && !conversation.wantsAnswer) return end(PersonActions::Dismissal::answered);
  // Also what was asked for while no application ran, as long as it is unanswered.
  if (conversation.isOpen && conversation.wantsAnswer && conversation.openedMs > presentedMs_) present();
}

void ConversationPopup::present() {
  presentedMs_ = feed_.conversation().openedMs;
  const auto room = QGuiApplication::primaryScreen()->availableGeometry();
  const auto space = Theme::scaled(24);
  move(room.right() - width() - space, room.bottom() - height() - space);
  show();
}

void ConversationPopup::openByPerson() {
  isWished_ = true;
  present();
  activateWindow();
}

void ConversationPopup::end(PersonActions::Dismissal how) {
  isWished_ = false;
  // What the person opened themselves is open to nobody but them.
  const auto& conversation = feed_.conversation();
  if (conversation.isOpen && conversation.openedMs > endedMs_) {
    endedMs_ = conversation.openedMs;
    feed_.act(this, [nowMs = feed_.config().nowMs(), how] { return PersonActions::dismissConversation(nowMs, how); });
  }
  hide();
}

void ConversationPopup::closeEvent(QCloseEvent* event) {
  end(PersonActions::Dismissal::closed);
  event->accept();
}

void ConversationPopup::keyPressEvent(QKeyEvent* event) {
  if (event->key() == Qt::Key_Escape) close();
  else QWidget::keyPressEvent(event);
}

}  // namespace halvo
