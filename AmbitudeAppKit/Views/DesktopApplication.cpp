#include "AmbitudeAppKit/Views/DesktopApplication.h"

#include <QApplication>
#include <QMenu>
#include <QMenuBar>
#include <QSystemTrayIcon>

#include "AmbitudeAppKit/Stores/Health.h"
#include "AmbitudeAppKit/Views/AppIcon.h"
#include "AmbitudeAppKit/Views/Background.h"
#include "AmbitudeAppKit/Views/ConversationPopup.h"
#include "AmbitudeAppKit/Views/ConversationView.h"
#include "AmbitudeAppKit/Views/MainWindow.h"
#include "AmbitudeAppKit/Views/NowView.h"
#include "AmbitudeAppKit/Views/Theme.h"
#include "AmbitudeAppKit/Views/ViewMenu.h"
#include "AmbitudeAppKit/Views/Widgets.h"

namespace halvo {

namespace {

constexpr std::size_t wholeConversation = 2'000;
constexpr int healthEveryMs = 5'000;
enum PageIndex { nowPage, conversationPage };

}  // namespace

DesktopApplication::DesktopApplication(DayFeed::Config config, std::vector<PageEntry> more, Look look)
    : look_(std::move(look)), feed_(std::make_unique<DayFeed>(std::move(config))), notifiedUpToMs_(feed_->config().nowMs()) {
  pages_ = {{tr("Now"), tr("What you mean to be doing, and the day so far"), [this] { return new NowView(*feed_); }},
            {tr("Conversation"), tr("Talk with Lark"), [this] { return new ConversationView(*feed_, wholeConversation); }}};
  for (auto& page : more) pages_.push_back(std::move(page));
  makeWindows();
  makeTrayIcon();
  connect(feed_.get(), &DayFeed::conversationChanged, this, &DesktopApplication::notifyOfWords);
  connect(&healthPoll_, &QTimer::timeout, this, &DesktopApplication::lookAtHealth);
  healthPoll_.start(healthEveryMs);
  lookAtHealth();
}

void DesktopApplication::makeWindows() {
  window_ = std::make_unique<MainWindow>(pages_);
  window_->setWindowIcon(AppIcon::icon());
  // A choice ends the window whose menu it is in.
  ViewMenu::addTo(*window_->menuBar(), look_.appearance,
                  [this](const Appearance& wanted) { QTimer::singleShot(0, this, [this, wanted] { setAppearance(wanted); }); });
  popup_ = std::make_unique<ConversationPopup>(*feed_);
  popup_->setWindowIcon(AppIcon::icon());
}

void DesktopApplication::setAppearance(const Appearance& wanted) {
  if (wanted == look_.appearance) return;
  look_.appearance = wanted;
  if (!look_.appearanceFile.empty()) queue_.post([wanted, file = look_.appearanceFile](const std::stop_token&) { wanted.write(file); });
  Theme::install(*qApp, wanted.mode, wanted.textPercent);
  const auto before = std::move(window_);
  makeWindows();
  window_->setGeometry(before->geometry());
  window_->setWindowState(before->windowState());
  window_->showPage(before->currentPage());
  showHealth();
  show();
}

void DesktopApplication::lookAtHealth() {
  inBackground(
      queue_, this, [nowMs = feed_->config().nowMs()](const std::stop_token&) { return Health::look(processEnvironment(), nowMs); },
      [this](SidebarHealthStrip::State health) {
        health_ = std::move(health);
        showHealth();
      });
}

void DesktopApplication::showHealth() {
  window_->showHealth(Widgets::qt(health_.title), Widgets::qt(health_.detail), health_.tone == SidebarHealthStrip::Tone::warning);
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
  trayMenu_ = std::make_unique<QMenu>();
  auto* menu = trayMenu_.get();
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
