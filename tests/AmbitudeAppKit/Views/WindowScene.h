#pragma once

#include <cstdlib>
#include <filesystem>
#include <functional>

#include <gtest/gtest.h>

#include <QApplication>
#include <QDialog>
#include <QLabel>
#include <QPushButton>
#include <QTest>
#include <QTimer>

#include "AmbitudeAppKit/Views/DesktopApplication.h"
#include "AmbitudeAppKit/Views/MainWindow.h"
#include "AmbitudeAppKit/Views/Theme.h"
#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/EventLog/EventLogReader.h"
#include "CaptureShared/EventLog/EventLogWriter.h"
#include "CaptureShared/Foundation/Clock.h"
#include "app/DesktopNeeds.h"
#include "tests/support/PrivateBus.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/XServer.h"

namespace halvo::test {

/// The real windows on a private X server, over a data root of their own.
class WindowScene : public testing::Test {
 protected:
  WindowScene() {
    static const XServer server;
    ::setenv("DISPLAY", server.display().c_str(), 1);
    ::setenv("DBUS_SESSION_BUS_ADDRESS", bus().address().c_str(), 1);
    ::setenv("QT_QPA_PLATFORM", "xcb", 1);
    // One home for all: a process has one, and keeps what it read from there.
    static const TemporaryFolder home;
    for (const auto* folderOfTheirs : {"Library", ".config"}) std::filesystem::remove_all(home.path() / folderOfTheirs);
    ::unsetenv("XDG_CONFIG_HOME");
    ::setenv("HOME", home.path().c_str(), 1);
    ::setenv("AMBITCAP_DATA_ROOT", root.c_str(), 1);
    ::setenv("AMBITCHECK_TASK_FILE", (folder.path() / "task").c_str(), 1);
    std::filesystem::create_directories(root / "io-layer");
    static int arguments = 1;
    static char name[] = "test", *argument[] = {name, nullptr};
    // Never destroyed: by the time statics are, Qt's own are gone.
    static auto* application = new QApplication(arguments, argument);
    Theme::install(*application, Theme::Mode::light);
  }

  void open() {
    desktop = std::make_unique<DesktopApplication>(DayFeed::Config{.root = root, .nowMs = Clock::system().nowMs, .pollMs = 30, .replyPollMs = 30},
                                                   Pages::all(desktopNeeds()));
    desktop->show();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&desktop->window()));
  }
  /// The session's bus, without a desktop's services but for those that a test starts.
  static PrivateBus& bus() {
    static PrivateBus one;
    return one;
  }
  /// Runs the event loop until `holds` does.
  static bool eventually(const std::function<bool()>& holds, int ms = 8'000) { return QTest::qWaitFor(holds, ms); }
  /// Whether a label that can be seen holds these words.
  static bool shows(QWidget& widget, const QString& words) {
    for (const auto* label : widget.findChildren<QLabel*>())
      if (label->isVisible() && label->text().contains(words)) return true;
    return false;
  }
  /// Presses a button by the keyboard, wherever the page is scrolled to.
  static void press(QPushButton* button) {
    ASSERT_NE(button, nullptr);
    button->setFocus();
    QTest::keyClick(button, Qt::Key_Space);
  }
  /// Presses a button and deals with the dialog that it opens.
  static void pressAnd(QPushButton* button, const std::function<void(QDialog&)>& answer) {
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, [&] {
      auto* dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget());
      if (!dialog) return;
      poll.stop();
      answer(*dialog);
      if (dialog->isVisible()) dialog->reject();
    });
    poll.start(20);
    press(button);
    EXPECT_FALSE(poll.isActive()) << "nothing was asked";
  }
  static void pressAndAnswer(QPushButton* button, const QString& answer) {
    pressAnd(button, [&](QDialog& dialog) {
      for (auto* choice : dialog.findChildren<QPushButton*>())
        if (choice->text() == answer) return choice->click();
      ADD_FAILURE() << "no such answer: " << answer.toStdString();
    });
  }
  std::vector<EventLogEvent> rows(std::string_view type) const {
    std::vector<EventLogEvent> found;
    if (!std::filesystem::exists(DataPaths::events(root))) return found;
    for (auto& row : EventLogReader::read(DataPaths::events(root)))
      if (row.type == type) found.push_back(std::move(row));
    return found;
  }
  void add(const EventLogEvent& row) const { EventLogWriter::append(row, DataPaths::events(root), "CoachDriver", "1"); }

  TemporaryFolder folder;
  std::filesystem::path root = folder.path() / "data";
  std::unique_ptr<DesktopApplication> desktop;
};

}  // namespace halvo::test
