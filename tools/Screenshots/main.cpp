// Pictures of each page of the application on an invented day, light and dark: Screenshots FOLDER
#include <cstdio>
#include <cstdlib>

#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QEventLoop>
#include <QPixmap>
#include <QScrollArea>
#include <QScrollBar>
#include <QTimer>

#include "AmbitudeAppKit/Views/ClipView.h"
#include "AmbitudeAppKit/Views/ConversationPopup.h"
#include "AmbitudeAppKit/Views/DesktopApplication.h"
#include "AmbitudeAppKit/Views/MainWindow.h"
#include "AmbitudeAppKit/Views/Theme.h"
#include "CaptureShared/DataRoot/AgentUmask.h"
#include "CaptureShared/Foundation/FFmpegResolver.h"
#include "CaptureShared/Labels/Clips/ClipFolder.h"
#include "CaptureShared/Labels/Clips/RampProxyEncoder.h"
#include "app/ArchiveKeys.h"
#include "app/DesktopNeeds.h"
#include "tests/support/InventedDay.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/XServer.h"
#include "tools/Screenshots/InventedMachine.h"
#include "tools/Screenshots/InventedRecording.h"

namespace {

using namespace halvo;

/// Lets the pages read their files and lay themselves out.
void settle(int ms) {
  QEventLoop loop;
  QTimer::singleShot(ms, &loop, &QEventLoop::quit);
  loop.exec();
}

void waitFor(const std::function<bool()>& holds, int atMostMs = 60'000) {
  for (int waited = 0; !holds() && waited < atMostMs; waited += 50) settle(50);
}

/// Shows more of a page than what it shows by itself.
void prepare(Page& page) {
  if (auto* clip = page.findChild<ClipView*>()) {
    waitFor([&] { return clip->frameShown() >= 0; });
    clip->step(1'000'000);  // to its end, the moment itself
    const auto first = clip->frameShown();
    waitFor([&] { return clip->frameShown() > first; });
  }
  if (auto* which = page.findChild<QComboBox*>("which agents")) which->setCurrentIndex(1);
}

/// Makes the window high enough for all of a page.
void makeRoom(MainWindow& window, const QSize& ordinary, Page& page) {
  window.resize(ordinary);
  settle(200);
  if (const auto* area = page.findChild<QScrollArea*>()) window.resize(ordinary + QSize(0, area->verticalScrollBar()->maximum()));
}

/// The application's own needs, but for the machine and for where a moment's frames are found.
Pages::Needs needs(const std::filesystem::path& root, const Calendar& calendar) {
  auto made = desktopNeeds();
  InventedMachine::putInto(made, calendar);
  const auto folder = std::make_shared<ClipFolder>(processEnvironment());
  made.review.makeClip = [=, locate = InventedRecording::locate(root, calendar)](std::int64_t atMs, const std::stop_token& stop) {
    const auto plan = RampClipPlan::plan({.judgedInstantMs = atMs, .locate = locate});
    const auto file = folder->path() / "moment.mp4";
    std::filesystem::remove(file);
    const auto cost = RampProxyEncoder::encode(
        plan, file, {.ffmpeg = FFmpegResolver::resolve(processEnvironment()), .keyForGeneration = ArchiveKeys::ofThisAccount()}, stop);
    return MomentClip{.file = file, .fps = plan.outputFps, .frameCount = cost.frameCount, .fromMs = plan.frames.front().sourceRealMs};
  };
  return made;
}

void takePictures(QApplication& application, const std::filesystem::path& root, const QString& folder) {
  const auto calendar = Calendar::local();
  for (const auto mode : {Theme::Mode::light, Theme::Mode::dark}) {
    Theme::install(application, mode);
    DesktopApplication desktop({.root = root, .calendar = calendar, .nowMs = [=] { return test::InventedDay::nowMs(calendar); }},
                               Pages::all(needs(root, calendar)));
    auto& window = desktop.window();
    constexpr QSize ordinary(1100, 760);
    window.resize(ordinary);
    window.show();
    settle(1'200);
    for (int i = 0; i < window.pageCount(); ++i) {
      window.showPage(i);
      settle(600);
      prepare(*window.page(i));
      makeRoom(window, ordinary, *window.page(i));
      settle(400);
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
  InventedRecording::write(root, Calendar::local());
  InventedMachine::write(root, Calendar::local());
  QDir().mkpath(argv[1]);
  takePictures(application, root, argv[1]);
  return 0;
}
