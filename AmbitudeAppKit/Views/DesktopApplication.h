#pragma once

#include <memory>
#include <vector>

#include <QObject>

#include "AmbitudeAppKit/Views/DayFeed.h"
#include "AmbitudeAppKit/Views/DesktopNotifier.h"
#include "AmbitudeAppKit/Views/Page.h"

class QSystemTrayIcon;

namespace halvo {

class ConversationPopup;
class MainWindow;

/// Everything that a running application shows: the window, the popup, the tray icon, notifications. The `QApplication` is the caller's.
class DesktopApplication : public QObject {
  Q_OBJECT

 public:
  /// `more` are the pages behind the first two.
  DesktopApplication(DayFeed::Config config, std::vector<PageEntry> more);
  ~DesktopApplication() override;

  MainWindow& window() { return *window_; }
  ConversationPopup& popup() { return *popup_; }
  DayFeed& feed() { return *feed_; }

  /// Shows the window and brings it to the front.
  void show();

 private:
  void makeTrayIcon();
  void notifyOfWords();

  std::unique_ptr<DayFeed> feed_;
  std::unique_ptr<MainWindow> window_;
  std::unique_ptr<ConversationPopup> popup_;
  std::unique_ptr<QSystemTrayIcon> tray_;
  DesktopNotifier notifier_;
  std::int64_t notifiedUpToMs_ = 0;
};

}  // namespace halvo
