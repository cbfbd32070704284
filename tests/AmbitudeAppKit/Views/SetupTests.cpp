// The first start, the start without the data, a second start, and the model's page.

#include <csignal>
#include <thread>

#include <QLineEdit>
#include <QMainWindow>
#include <QProgressBar>

#include "AmbitudeAppKit/Views/DesktopSession.h"
#include "AmbitudeAppKit/Views/ModelView.h"
#include "AmbitudeAppKit/Views/SingleApplication.h"
#include "AmbitudeAppKit/Views/Widgets.h"
#include "CaptureShared/Recording/VideoArchiveKeyStore.h"
#include "Platform/Linux/LinuxArchiveKeyBackend.h"
#include "tests/AmbitudeAppKit/Views/WindowScene.h"
#include "tests/support/ChildProcess.h"

namespace halvo {
namespace {

namespace fs = std::filesystem;
using Widgets::qt;

class SetupTest : public test::WindowScene {
 protected:
  SetupTest() {
    ::unsetenv("AMBITCAP_DATA_ROOT");
    DataPaths::invalidateConfigCache();
  }
  void start() {
    session = std::make_unique<DesktopSession>(DesktopSession::Needs{
        .setup = setupOperations(), .offeredRoot = qt(chosen.string()), .application = [] {
          return std::make_unique<DesktopApplication>(DayFeed::Config{.root = DataPaths::dataRoot(), .nowMs = Clock::system().nowMs},
                                                      Pages::all(desktopNeeds()));
        }});
    session->show();
  }
  QPushButton* button(const char* name) { return session->setupWindow()->findChild<QPushButton*>(name); }
  bool runs() {
    return eventually([&] { return session->application() && session->application()->window().isVisible() && !session->setupWindow(); });
  }

  fs::path chosen = folder.path() / "mine";
  std::unique_ptr<DesktopSession> session;
};

TEST_F(SetupTest, theFirstStartMakesAPlaceAndAKey) {
  start();
  auto& window = *session->setupWindow();
  EXPECT_TRUE(shows(window, "Welcome to Halvo"));
  auto* field = window.findChild<QLineEdit*>("root");
  field->setText(qt(std::getenv("HOME")));
  press(button("start"));
  EXPECT_TRUE(eventually([&] { return shows(window, "give a folder of its own"); }));
  EXPECT_EQ(DataRootSetup::state(), DataRootSetup::State::unconfigured);

  field->setText(qt(chosen.string()));
  press(button("start"));
  ASSERT_TRUE(runs());
  EXPECT_EQ(DataPaths::dataRoot(), chosen);
  EXPECT_EQ(fs::status(chosen).permissions(), fs::perms::owner_all);
  const auto keys = fs::path(std::getenv("HOME")) / "Library/Application Support/AmbitCapture/keys";
  EXPECT_TRUE(fs::exists(keys / VideoArchiveKeyStore::defaultService / "default.json"));
  // The recorder is who must be able to read it.
  LinuxArchiveKeyBackend recorder({.folder = keys, .anchor = std::getenv("HOME"), .self = fs::canonical(HALVO_BIN "/Capturer")});
  EXPECT_NO_THROW(VideoArchiveKeyStore(recorder).load());
}

TEST_F(SetupTest, dataThatIsAwayIsWaitedForAndNeverMadeAnew) {
  DataRootSetup::carryOut({.root = chosen});
  fs::rename(chosen, folder.path() / "unmounted");
  start();
  auto& window = *session->setupWindow();
  EXPECT_TRUE(shows(window, "isn't mounted"));
  EXPECT_EQ(window.findChild<QLineEdit*>("root"), nullptr);
  press(button("try again"));
  EXPECT_FALSE(eventually([&] { return session->application() != nullptr; }, 300));
  EXPECT_FALSE(fs::exists(chosen));
  fs::rename(folder.path() / "unmounted", chosen);
  press(button("try again"));
  EXPECT_TRUE(runs());
}

TEST_F(SetupTest, aSecondStartAsksTheFirst) {
  {
    SingleApplication first(folder.path());
    int asked = 0;
    first.listen([&] { ++asked; });
    const SingleApplication second(folder.path());
    EXPECT_TRUE(first.isFirst() && !second.isFirst());
    EXPECT_TRUE(second.askFirst());
    EXPECT_TRUE(eventually([&] { return asked == 1; }));
  }
  auto environment = processEnvironment();
  environment["XDG_RUNTIME_DIR"] = folder.path();
  environment["AMBITCAP_DATA_ROOT"] = root;
  const auto program = [&] { return test::ChildProcess(HALVO_BIN "/AmbitudeApp", {}, environment); };
  auto first = program();
  ASSERT_TRUE(eventually([&] { return fs::exists(folder.path() / "halvo-app.sock"); }));
  EXPECT_EQ(program().wait(10), 0);
  EXPECT_FALSE(first.wait(0.1)) << "the first one goes on";
  environment["QT_QPA_PLATFORM"] = "none such";
  environment.erase("AMBITCAP_DATA_ROOT");
  EXPECT_EQ(program().wait(10), 0) << "no window on a platform that can't be had";
  first.signal(SIGKILL);
  first.wait(5);
  EXPECT_TRUE(SingleApplication(folder.path()).isFirst()) << "what a killed one left bars nobody";
}

TEST_F(SetupTest, anInstallShowsHowFarItIsAndCanBeCancelled) {
  ModelView view({.list = [] { return ModelPage{.rows = {{.name = "small", .state = "1.20 GB still to come", .isBegun = true},
                                                         {.name = "whole", .isConfigured = true, .isWhole = true, .isBegun = true}}}; },
                  .install = [](const std::string& name, const ModelShelf::OnProgress& onProgress, const std::stop_token& stop) -> ModelShelf::Outcome {
                    onProgress({LocalModelInstaller::Downloading{name + ".gguf"}, 1'000'000'000, 4'000'000'000});
                    while (!stop.stop_requested()) std::this_thread::yield();
                    return ModelShelf::Stopped{};
                  },
                  .verify = [](auto&&...) -> ModelShelf::Outcome { return ModelShelf::Failed{"whole.gguf is not what was published"}; },
                  .choose = [](const std::string& name) -> ModelShelf::Outcome { return ModelShelf::Done{{name + " is chosen"}}; }});
  view.setVisible(true);
  view.shown();
  const auto find = [&](const char* name) { return view.findChild<QPushButton*>(name); };
  ASSERT_TRUE(eventually([&] { return find("install small") && find("verify whole"); }));
  EXPECT_EQ(find("choose whole"), nullptr);
  press(find("install small"));
  ASSERT_TRUE(eventually([&] { return shows(view, "1.00 GB of 4.00 GB"); }));
  EXPECT_EQ(view.findChild<QProgressBar*>()->value(), 250);
  EXPECT_FALSE(find("verify whole")->isEnabled());
  for (auto* button : view.findChildren<QPushButton*>())
    if (button->text() == "Cancel") press(button);
  EXPECT_TRUE(eventually([&] { return shows(view, "Stopped; the next install goes on from here."); }));
  EXPECT_FALSE(view.findChild<QProgressBar*>()->isVisible());
  press(find("verify whole"));
  EXPECT_TRUE(eventually([&] { return shows(view, "is not what was published"); }));
  press(find("choose small"));
  EXPECT_TRUE(eventually([&] { return shows(view, "small is chosen"); }));
}

}  // namespace
}  // namespace halvo
