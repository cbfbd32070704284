// The desktop application itself. `AmbitudeApp` becomes it, and all that is asked of either is answered alike.
#include <algorithm>
#include <cstdio>
#include <exception>
#include <memory>

#include <QApplication>
#include <QDir>
#include <QJsonArray>
#include <QJsonObject>
#include <QPluginLoader>

#include "AmbitudeAppKit/Entry/AppEntryPoint.h"
#include "AmbitudeAppKit/Live/TerminalChat.h"
#include "AmbitudeAppKit/Stores/Appearance.h"
#include "AmbitudeAppKit/Stores/BackgroundQueue.h"
#include "AmbitudeAppKit/Views/DesktopApplication.h"
#include "AmbitudeAppKit/Views/DesktopSession.h"
#include "AmbitudeAppKit/Views/Language.h"
#include "AmbitudeAppKit/Views/SingleApplication.h"
#include "AmbitudeAppKit/Views/Theme.h"
#include "AmbitudeAppKit/Views/Widgets.h"
#include "CaptureShared/DataRoot/AgentUmask.h"
#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/TerminationSignals.h"
#include "CaptureShared/Labels/Clips/ClipFolder.h"
#include "Platform/Linux/XScreenCapture.h"
#include "app/ArchiveKey.h"
#include "app/DesktopNeeds.h"

namespace {

using namespace halvo;

/// After the set-up all agents begin; any other start goes on with what an older installation, an update or a broken-off move left.
void startAgents(AgentActions& agents, bool isNew) {
  const auto tell = [](const AgentActions::Told& told) {
    std::fprintf(stderr, "%s: %s %s\n", told.agent ? label(*told.agent).c_str() : "agents", told.words.c_str(), told.detail.c_str());
  };
  isNew ? agents.installAfterSetup(tell) : agents.start(tell);
}

/// What was recorded can be looked at without them; a change that can't be written says so itself.
void makeFolders() {
  try {
    DataPaths::ensureSubdirsExist();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
  }
}

std::unique_ptr<DesktopApplication> makeApplication(const std::shared_ptr<AgentPlace>& agents, const DesktopApplication::Look& look) {
  return std::make_unique<DesktopApplication>(DayFeed::Config{.root = DataPaths::dataRoot(), .nowMs = Clock::system().nowMs},
                                              Pages::all(desktopNeeds(agents)), look);
}

/// Absent when nobody can tell: two windows do less harm than none.
std::unique_ptr<SingleApplication> claim(const Environment& environment) {
  try {
    return std::make_unique<SingleApplication>(SingleApplication::folder(environment));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return nullptr;
  }
}

bool hasXDisplay(const Environment& environment) {
  try {
    XScreenCapture(value(environment, "DISPLAY")).displays();
    return true;
  } catch (const ScreenCaptureError&) {
    return false;
  }
}

bool isPlatform(const QString& name, const Environment& environment) {
  QStringList folders;
  if (const auto named = value(environment, "QT_QPA_PLATFORM_PLUGIN_PATH")) folders << Widgets::qt(*named);
  for (const auto& path : QCoreApplication::libraryPaths()) folders << path + "/platforms";
  for (const auto& folder : folders)
    for (const auto& file : QDir(folder).entryInfoList({"*.so"}, QDir::Files))
      if (QPluginLoader(file.filePath()).metaData()["MetaData"].toObject()["Keys"].toArray().contains(name)) return true;
  return false;
}

/// Whether a window can be shown: Qt ends the process, and not with 0, on a platform that it can't have.
bool hasDisplay(const Environment& environment) {
  const auto named = value(environment, "QT_QPA_PLATFORM");
  if (!named || named->empty()) return hasXDisplay(environment);
  const auto wanted = Widgets::qt(*named).split(';', Qt::SkipEmptyParts);
  return std::ranges::any_of(wanted, [&](const QString& each) {
    const auto name = each.section(':', 0, 0);  // options follow
    return isPlatform(name, environment) && (name != "xcb" || hasXDisplay(environment));
  });
}

/// Without a display: the conversation in the terminal it was started from.
void converseInTerminal(const std::stop_token& stop) {
  std::fputs("no display, so no window\n", stderr);
  if (!DataPaths::ensureSubdirsExist()) {
    std::fprintf(stderr, "%s\n", DataPaths::dataRootUnavailableReason().c_str());
    return;
  }
  TerminalChat({.dataRoot = DataPaths::dataRoot(), .processName = "AmbitudeApp"}, Calendar::local()).run(stop);
}

void mainLoop(char** argv) {
  const TerminationSignals ending;
  const auto environment = processEnvironment();
  if (!hasDisplay(environment)) return converseInTerminal(ending.token());
  const auto single = claim(environment);
  if (single && !single->isFirst()) {
    if (!single->askFirst()) std::fputs("Halvo runs already and does not answer\n", stderr);
    return;
  }
  BackgroundQueue startup;
  // The zones of the world are a walk through hundreds of files: it is over when the windows want to know the hour.
  startup.post([](const std::stop_token&) { Calendar::local().hourMinute(0); });
  int own = 1;  // none of the arguments is for Qt: it ends the process on one that it can't use
  QApplication application(own, argv);
  QApplication::setApplicationName("halvo");
  QApplication::setApplicationDisplayName("Halvo");
  QApplication::setDesktopFileName("halvo");
  Language::install();
  const auto appearanceFile = Appearance::path(environment);
  const auto appearance = Appearance::read(appearanceFile);
  Theme::install(application, appearance.mode, appearance.textPercent);
  const bool isNew = DataRootSetup::state() == DataRootSetup::State::unconfigured;
  const auto agents = std::make_shared<AgentPlace>();
  // Who set everything up and closed the window at once has the agents all the same.
  BackgroundQueue registration(isNew ? BackgroundQueue::AtEnd::finish : BackgroundQueue::AtEnd::drop);
  startup.post([](const std::stop_token&) { ArchiveKey::provision(); });
  // Making one removes the clips of a process that was killed while somebody watched.
  startup.post([environment](const std::stop_token&) { ClipFolder folder(environment); });
  DesktopSession session({.setup = setupOperations(),
                          .offeredRoot = Widgets::qt(DataPaths::defaultRootForNewInstall().string()),
                          .application = [&] {
                            registration.post([agents, isNew](const std::stop_token&) {
                              makeFolders();
                              startAgents(agents->actions(), isNew);
                            });
                            return makeApplication(agents, {.appearance = appearance, .appearanceFile = appearanceFile});
                          }});
  session.show();
  if (single) single->listen([&] { session.show(); });
  // An end by a signal is an end like any other: what a page keeps on the disk goes with it.
  const std::stop_callback end(ending.token(), [] { QMetaObject::invokeMethod(qApp, [] { QApplication::quit(); }, Qt::QueuedConnection); });
  QApplication::exec();
}

}  // namespace

int main(int argc, char** argv) {
  halvo::AgentUmask::apply();
  halvo::AppEntryPoint::run({argv + 1, argv + argc}, [&] { mainLoop(argv); });
}
