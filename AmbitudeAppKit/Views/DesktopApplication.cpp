#include "AmbitudeAppKit/Views/DesktopApplication.h"

#include <QApplication>
#include <QMenu>
#include <QSystemTrayIcon>

#include "AmbitudeAppKit/Views/AppIcon.h"
#include "AmbitudeAppKit/Views/ConversationPopup.h"
#include "AmbitudeAppKit/Views/ConversationView.h"
#include "AmbitudeAppKit/Views/MainWindow.h"
#include "AmbitudeAppKit/Views/NowView.h"
#include "AmbitudeAppKit/Views/Widgets.h"

namespace halvo {

namespace {

constexpr std::size_t wholeConversation = 2'000;
enum PageIndex { nowPage, conversationPage };

}  // namespace

DesktopApplication::DesktopApplication(DayFeed::Config config, std::vector<PageEntry> more)
    : feed_(std::make_unique<DayFeed>(std::move(config))), notifiedUpToMs_(feed_->config().nowMs()) {
  std::vector<PageEntry> pages{
      {tr("Now"), tr("What you mean to be doing, and the day so far"), [this] { return new NowView(*feed_); }},
      {tr("Conversation"), tr("Talk with Lark"), [this] { return new ConversationView(*feed_, wholeConversation); }}};
  for (auto& page : more) pages.push_back(std::move(page));
  window_ = std::make_unique<MainWindow>(std::move(pages));
  window_->setWindowIcon(AppIcon::icon());
  popup_ = std::make_unique<ConversationPopup>(*feed_);
  popup_->setWindowIcon(AppIcon::icon());
  makeTrayIcon();
  connect(feed_.get(), &DayFeed::conversationChanged, this, &DesktopApplication::notifyOfWords);
}

DesktopApplication::~DesktopApplication() = default;

void DesktopApplication::show() {
  window_->show();
  window_->raise();
  window_->activateWindow();
}

void DesktopApplication::makeTrayIcon() {
  if (!QSystemTrayIcon::isSystemTrayAvailable()) return;
  tray_ = std::make_unique<QSystemTrayIcon>(AppIcon::icon());
  tray_->setToolTip(tr("Halvo"));
  auto* menu = new QMenu(window_.get());
  menu->addAction(tr("Open Halvo"), this, &DesktopApplication::show);
  menu->addAction(tr("Talk with Lark"), this, [this] {
    window_->showPage(conversationPage);
    show();
  });
  menu->addSeparator();
  menu->addAction(tr("Quit"), qApp, &QApplication::quit);
  tray_->setContextMenu(menu);
  connect(tray_.get(), &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
    if (reason == QSystemTrayIcon::Trigger) show();
  });
  tray_->show();
  // With an icon to come back by, closing the window does not end the application.
  QApplication::setQuitOnLastWindowClosed(false);
}

void DesktopApplication::notifyOfWords() {
  const auto& entries = feed_->conversation().entries;
  const Conversation::Entry* newest = nullptr;
  for (const auto& entry : entries)
    if (entry.kind == Conversation::Entry::Kind::lark && entry.tsMs > notifiedUpToMs_) newest = &entry;
  if (!newest) return;
  notifiedUpToMs_ = newest->tsMs;
  // Whoever sees the words need not be told of them.
  const bool isSeen = popup_->isVisible() || (window_->isActiveWindow() && window_->currentPage() == conversationPage);
  if (!isSeen) notifier_.notify(tr("Lark"), Widgets::qt(newest->text));
}

}  // namespace halvo
