#pragma once

#include <filesystem>
#include <memory>
#include <vector>

#include <QObject>
#include <QTimer>

#include "AmbitudeAppKit/AgentControl/SidebarHealthStrip.h"
#include "AmbitudeAppKit/Stores/Appearance.h"
#include "AmbitudeAppKit/Views/DayFeed.h"
#include "AmbitudeAppKit/Views/DesktopNotifier.h"
#include "AmbitudeAppKit/Views/Page.h"

class QAction;
class QMenu;
class QSystemTrayIcon;

namespace halvo {

class ConversationPopup;
class MainWindow;

/// Everything that a running application shows: the window, the popup, the tray icon, notifications. The `QApplication` is the caller's.
class DesktopApplication : public QObject {
  Q_OBJECT

 public:
  struct Look {
    Appearance appearance;                 ///< as `Theme` has it installed
    std::filesystem::path appearanceFile;  ///< where a change is kept; empty: nowhere
  };
  /// `more` are the pages behind the first two.
  DesktopApplication(DayFeed::Config config, std::vector<PageEntry> more, Look look = {});
  ~DesktopApplication() override;

  MainWindow& window() { return *window_; }
  ConversationPopup& popup() { return *popup_; }
  DayFeed& feed() { return *feed_; }

  /// Shows the window and brings it to the front.
  void show();
  /// Shows everything in another look, with all that is on it and going on, and keeps it for the next start.
  void setAppearance(const Appearance& wanted);

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  void makeWindows(std::vector<PageEntry> pages);
  void offerLooks();
  /// The panel may come after us: looks until there is one, for a while.
  void lookForTray();
  void makeTrayIcon();
  void notifyOf(bool isByLark, const QString& words);
  void lookAtHealth();
  void pauseOrResume();
  void showHealth();

  Look look_;
  std::unique_ptr<DayFeed> feed_;
  std::unique_ptr<MainWindow> window_;
  std::unique_ptr<ConversationPopup> popup_;
  std::unique_ptr<QMenu> trayMenu_;
  std::unique_ptr<QSystemTrayIcon> tray_;
  DesktopNotifier notifier_;
  SidebarHealthStrip::State health_;
  bool isRecordingPaused_ = false;
  QAction* pauseOrResume_ = nullptr;  ///< in the tray's menu, if there is one
  QTimer healthPoll_, trayPoll_;
  int trayLooksLeft_ = 10;
  BackgroundQueue queue_{BackgroundQueue::AtEnd::finish};  ///< a look that was chosen is kept
};

}  // namespace halvo
