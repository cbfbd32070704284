// The desktop application. `--dump` prints what the system believes and ends.
#include <cstdio>

#include <QApplication>

#include "AmbitudeAppKit/Entry/AppEntryPoint.h"
#include "AmbitudeAppKit/Views/DesktopApplication.h"
#include "AmbitudeAppKit/Views/Theme.h"
#include "CaptureShared/DataRoot/AgentUmask.h"
#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/Foundation/Clock.h"
#include "app/DesktopNeeds.h"

namespace {

void mainLoop(int& argc, char** argv) {
  QApplication application(argc, argv);
  QApplication::setApplicationName("halvo");
  QApplication::setApplicationDisplayName("Halvo");
  QApplication::setDesktopFileName("halvo");
  halvo::Theme::install(application, halvo::Theme::Mode::automatic);
  if (!halvo::DataPaths::ensureSubdirsExist()) std::fprintf(stderr, "%s\n", halvo::DataPaths::dataRootUnavailableReason().c_str());
  halvo::DesktopApplication desktop({.root = halvo::DataPaths::dataRoot(), .nowMs = halvo::Clock::system().nowMs},
                                    halvo::Pages::all(halvo::desktopNeeds()));
  desktop.show();
  QApplication::exec();
}

}  // namespace

int main(int argc, char** argv) {
  halvo::AgentUmask::apply();
  halvo::AppEntryPoint::run({argv + 1, argv + argc}, [&] { mainLoop(argc, argv); });
}
