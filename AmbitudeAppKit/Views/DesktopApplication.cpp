#include "AmbitudeAppKit/Views/DesktopApplication.h"

#include <tuple>
#include <utility>

#include <QApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>
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
#include "CaptureShared/DataRoot/DataPaths.h"

namespace halvo {

namespace {

constexpr std::size_t wholeConversation = 2'000;
constexpr int healthEveryMs = 5'000, trayEveryMs = 2'000;
enum PageIndex { nowPage, conversationPage };

}  // namespace

DesktopApplication::DesktopApplication(DayFeed::Config config, std::vector<PageEntry> more, Look look)
    : look_(std::move(look)), feed_(std::make_unique<DayFeed>(std::move(config))) {
  std::vector<PageEntry> pages{
      {tr("Now"), tr("What you mean to be doing, and the day so far"), [this] { return new NowView(*feed_); }},
      {tr("Conversation"), tr("Talk with Lark"), [this] { return new ConversationView(*feed_, wholeConversation); }}};
  for (auto& page : more) pages.push_back(std::move(page));
  makeWindows(std::move(pages));
  connect(&trayPoll_, &QTimer::timeout, this, &DesktopApplication::lookForTray);
  trayPoll_.start(trayEveryMs);
  lookForTray();
  qApp->installEventFilter(this);
  connect(&notifier_, &DesktopNotifier::chosen, popup_.get(), &ConversationPopup::openByPerson);
  connect(feed_.get(), &DayFeed::saidAnew, this, &DesktopApplication::notifyOf);
  connect(&healthPoll_, &QTimer::timeout, this, &DesktopApplication::lookAtHealth);
  healthPoll_.start(healthEveryMs);
  lookAtHealth();
}

void DesktopApplication::makeWindows(std::vector<PageEntry> pages) {
  window_ = std::make_unique<MainWindow>(std::move(pages));
  window_->setWindowIcon(AppIcon::icon());
  offerLooks();
  popup_ = std::make_unique<ConversationPopup>(*feed_);
  popup_->setWindowIcon(AppIcon::icon());
}

void DesktopApplication::offerLooks() {
  auto* bar = window_->menuBar();
  qDeleteAll(bar->findChildren<QMenu*>(Qt::FindDirectChildrenOnly));
  // A choice ends the menu that it is in.
  ViewMenu::addTo(*bar, look_.appearance,
                  [this](const Appearance& wanted) { QTimer::singleShot(0, this, [this, wanted] { setAppearance(wanted); }); });
}

void DesktopApplication::setAppearance(const Appearance& wanted) {
  if (wanted == look_.appearance) return;
  look_.appearance = wanted;
  if (!look_.appearanceFile.empty()) queue_.post([wanted, file = look_.appearanceFile](const std::stop_token&) { wanted.write(file); });
  Theme::install(*qApp, wanted.mode, wanted.textPercent);
  offerLooks();
}

bool DesktopApplication::eventFilter(QObject* watched, QEvent* event) {
  // An end closes every window, and closing the popup would count as the person's own dismissal.
  if (watched == qApp && event->type() == QEvent::Quit) popup_->hide();
  return QObject::eventFilter(watched, event);
}

void DesktopApplication::lookAtHealth() {
  inBackground(
      queue_, this,
      [nowMs = feed_->config().nowMs()](const std::stop_token&) {
        return std::pair(Health::look(processEnvironment(), nowMs), RecordingControls::read(DataPaths::dataRoot()).isPaused(nowMs));
      },
      [this](std::pair<SidebarHealthStrip::State, bool> look) {
        std::tie(health_, isRecordingPaused_) = std::move(look);
        showHealth();
      });
}

void DesktopApplication::showHealth() {
  window_->showHealth(Widgets::qt(health_.title), Widgets::qt(health_.detail), health_.tone == SidebarHealthStrip::Tone::warning);
  if (pauseOrResume_) pauseOrResume_->setText(isRecordingPaused_ ? tr("Resume recording") : tr("Pause recording"));
}

void DesktopApplication::pauseOrResume() {
  // As the menu was labelled: it may have changed meanwhile.
  inBackground(
      queue_, this,
      [isPaused = isRecordingPaused_, nowMs = feed_->config().nowMs()](const std::stop_token&) {
        return isPaused ? PersonActions::resumeRecording() : PersonActions::pauseRecording(std::nullopt, nowMs);
      },
      [this](const PersonActions::Failure& failure) {
        if (failure) notifier_.notify(tr("Recording"), Widgets::qt(*failure));
        lookAtHealth();
      });
}

DesktopApplication::~DesktopApplication() = default;

void DesktopApplication::show() {
  window_->show();
  window_->raise();
  window_->activateWindow();
}

void DesktopApplication::lookForTray() {
  constexpr auto watcherName = "org.kde.StatusNotifierWatcher";
  auto ask = QDBusMessage::createMethodCall(watcherName, "/StatusNotifierWatcher", "org.freedesktop.DBus.Properties", "Get");
  ask << QString(watcherName) << QString("IsStatusNotifierHostRegistered");
  ask.setAutoStartService(false);
  auto* call = new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(ask, trayEveryMs), this);
  connect(call, &QDBusPendingCallWatcher::finished, this, [this, call] {
    call->deleteLater();
    if (tray_) return;
    const QDBusPendingReply<QDBusVariant> reply = *call;
    const bool isThere = reply.isValid() && reply.value().variant().toBool();
    // Qt asks the bus once and stays with the answer. A tray without the bus is looked for only when none came there.
    if (!isThere && --trayLooksLeft_ > 0) return;
    trayPoll_.stop();
    if (QSystemTrayIcon::isSystemTrayAvailable()) makeTrayIcon();
  });
}

void DesktopApplication::makeTrayIcon() {
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
  pauseOrResume_ = menu->addAction(tr("Pause recording"), this, &DesktopApplication::pauseOrResume);
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

void DesktopApplication::notifyOf(bool isByLark, const QString& words) {
  // Whoever sees the words need not be told of them.
  const bool isSeen = popup_->isVisible() || (window_->isActiveWindow() && window_->currentPage() == conversationPage);
  if (!isByLark || isSeen) return notifier_.withdraw();
  notifier_.notify(tr("Lark"), words);
}

}  // namespace halvo
