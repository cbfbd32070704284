// Pictures of each page of the application on an invented day, light and dark: Screenshots FOLDER
#include <cstdio>
#include <cstdlib>

#include <QApplication>
#include <QDir>
#include <QEventLoop>
#include <QPixmap>
#include <QTimer>

#include "AmbitudeAppKit/Views/ConversationPopup.h"
#include "AmbitudeAppKit/Views/DesktopApplication.h"
#include "AmbitudeAppKit/Views/MainWindow.h"
#include "AmbitudeAppKit/Views/Theme.h"
#include "CaptureShared/DataRoot/AgentUmask.h"
#include "app/DesktopNeeds.h"
#include "tests/support/InventedDay.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/XServer.h"

namespace {

using namespace halvo;

/// Lets the pages read their files and lay themselves out.
void settle(int ms) {
  QEventLoop loop;
  QTimer::singleShot(ms, &loop, &QEventLoop::quit);
  loop.exec();
}

void takePictures(QApplication& application, const std::filesystem::path& root, const QString& folder) {
  const auto calendar = Calendar::local();
  for (const auto mode : {Theme::Mode::light, Theme::Mode::dark}) {
    Theme::install(application, mode);
    DesktopApplication desktop({.root = root, .calendar = calendar, .nowMs = [=] { return test::InventedDay::nowMs(calendar); }},
                               Pages::all(desktopNeeds()));
    auto& window = desktop.window();
    window.resize(1100, 760);
    window.show();
    settle(1'200);
    for (int i = 0; i < window.pageCount(); ++i) {
      window.showPage(i);
      settle(600);
      const auto name = QString("%1/%2-%3.png").arg(folder, window.page(i)->accessibleName().toLower().replace(' ', '-'),
                                                    mode == Theme::Mode::dark ? "dark" : "light");
      if (!window.grab().save(name)) std::fprintf(stderr, "not written: %s\n", qPrintable(name));
      std::printf("%s\n", qPrintable(name));
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  AgentUmask::apply();
  if (argc != 2) {
    std::fputs("Screenshots FOLDER\n", stderr);
    return 1;
  }
  const test::XServer server({.width = 1400, .height = 900});
  const test::TemporaryFolder home;
  const auto root = home.path() / "data";
  ::setenv("DISPLAY", server.display().c_str(), 1);
  ::setenv("HOME", home.path().c_str(), 1);
  ::setenv("AMBITCAP_DATA_ROOT", root.c_str(), 1);
  ::setenv("AMBITCHECK_TASK_FILE", (home.path() / "task").c_str(), 1);
  std::filesystem::create_directories(root / "io-layer");
  test::InventedDay::write(root, Calendar::local());
  test::InventedDay::leaveReview(root, Calendar::local());
  QApplication application(argc, argv);
  QApplication::setFont(QFont("Inter", 10));
  QDir().mkpath(argv[1]);
  takePictures(application, root, argv[1]);
  return 0;
}
