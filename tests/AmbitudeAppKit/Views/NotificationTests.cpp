// What the desktop around the windows sees of them: notifications, the tray icon, and how the program ends.

#include <csignal>

#include <QLineEdit>

#include <sdbus-c++/sdbus-c++.h>

#include "AmbitudeAppKit/Views/ConversationPopup.h"
#include "AmbitudeCore/Coach/AppChatEvents.h"
#include "AmbitudeCore/Coach/CoachTurnEffects.h"
#include "CaptureShared/Foundation/Spawn.h"
#include "CaptureShared/Recording/Supervision/RecordingControls.h"
#include "tests/AmbitudeAppKit/Views/WindowScene.h"
#include "tests/support/ChildProcess.h"

namespace halvo {
namespace {

using Variants = std::vector<sdbus::Variant>;
/// Of a menu on the bus: its number, what it is, what is in it.
using MenuItem = sdbus::Struct<std::int32_t, std::map<std::string, sdbus::Variant>, Variants>;

class NotificationTest : public test::WindowScene {
 protected:
  ~NotificationTest() override { bus().stopLastService(); }
  /// A service of the desktop's that notes what it is asked.
  struct Service {
    std::unique_ptr<sdbus::IProxy> proxy;
    template <class... Arguments>
    void mock(const char* method, const Arguments&... arguments) const {
      proxy->callMethod(method).onInterface("org.freedesktop.DBus.Mock").withArguments(arguments...);
    }
    std::vector<Variants> calls(const std::string& method) const {
      std::vector<sdbus::Struct<std::uint64_t, Variants>> rows;
      proxy->callMethod("GetMethodCalls").onInterface("org.freedesktop.DBus.Mock").withArguments(method).storeResultsTo(rows);
      std::vector<Variants> calls;
      for (const auto& row : rows) calls.push_back(row.get<1>());
      return calls;
    }
  };
  /// Chooses an entry of a menu; false while it has none of that name.
  static bool choose(sdbus::IProxy& menu, const std::string& name) {
    constexpr auto interface = "com.canonical.dbusmenu";
    std::uint32_t revision = 0;
    MenuItem whole;
    menu.callMethod("GetLayout").onInterface(interface).withArguments(0, -1, std::vector<std::string>()).storeResultsTo(revision, whole);
    for (const auto& entry : whole.get<2>()) {
      const auto item = entry.get<MenuItem>();
      const auto label = item.get<1>().find("label");
      if (label == item.get<1>().end() || label->second.get<std::string>() != name) continue;
      menu.callMethod("Event").onInterface(interface).withArguments(item.get<0>(), std::string("clicked"), sdbus::Variant(std::string()), revision);
      return true;
    }
    return false;
  }
  bool isPaused() const { return RecordingControls::read(root).isPaused(Clock::system().nowMs()); }
  void lark(const std::string& words) const { add(AppChatEvents::coachMessage({.text = words, .asOfMs = Clock::system().nowMs()})); }
};

TEST_F(NotificationTest, oneStandsUntilItIsClickedOrAnswered) {
  const std::string name = "org.freedesktop.Notifications";
  bus().startTemplate("notification_daemon", name);
  const Service service{bus().proxy(name, "/org/freedesktop/Notifications")};
  const auto shown = [&](std::size_t count) { return eventually([&] { return service.calls("Notify").size() == count; }); };
  open();
  const auto turnMs = Clock::system().nowMs();
  QTest::qWait(5);
  lark("Still the essay?");
  ASSERT_TRUE(shown(1));
  add(AppChatEvents::coachMessage({.text = "Or <b>lunch</b>?", .asOfMs = turnMs}));  // its turn began before the other came
  ASSERT_TRUE(shown(2));
  const auto second = service.calls("Notify")[1];
  EXPECT_EQ(second[1].get<std::uint32_t>(), 1u) << "in place of the first";
  EXPECT_EQ(second[4].get<std::string>(), "Or &lt;b&gt;lunch&lt;/b&gt;?");

  service.mock("EmitSignal", name, std::string("ActionInvoked"), std::string("us"), Variants{std::uint32_t{1}, std::string("default")});
  auto& popup = desktop->popup();
  ASSERT_TRUE(eventually([&] { return popup.isVisible() && popup.isActiveWindow(); }));
  QTest::keyClicks(popup.findChild<QLineEdit*>("say"), "lunch");
  EXPECT_TRUE(service.calls("CloseNotification").empty());
  QTest::keyClick(popup.findChild<QLineEdit*>("say"), Qt::Key_Return);
  EXPECT_TRUE(eventually([&] { return service.calls("CloseNotification").size() == 1 && !popup.isVisible(); }));
  EXPECT_TRUE(rows("ui_closed").empty()) << "nobody had asked for it to be open";
}

TEST_F(NotificationTest, theProgramEndsByItsTrayIconAndByASignalAlike) {
  const std::string name = "org.kde.StatusNotifierWatcher";
  Service watcher;
  add(CoachTurnEffects::event("ui_opened", {}, Clock::system().nowMs()));
  lark("Still the essay?");
  auto environment = processEnvironment();
  environment["XDG_RUNTIME_DIR"] = folder.path();
  for (const std::size_t turn : {1, 2}) {
    test::ChildProcess program(HALVO_BIN "/AmbitudeApp", {}, environment);
    ASSERT_TRUE(eventually([&] {
      const auto found = Spawn::capture("xdotool", {"search", "--onlyvisible", "--name", "^Lark$"}, "", 5);
      return found && !found->standardOutput.empty();
    })) << "the popup";
    if (turn == 1) {  // a panel that comes after the program
      bus().startService(name, "/StatusNotifierWatcher", name);
      watcher.proxy = bus().proxy(name, "/StatusNotifierWatcher");
      watcher.mock("AddMethod", name, std::string("RegisterStatusNotifierItem"), std::string("s"), std::string(), std::string());
      watcher.mock("AddProperty", name, std::string("IsStatusNotifierHostRegistered"), sdbus::Variant(true));
    }
    ASSERT_TRUE(eventually([&] { return watcher.calls("RegisterStatusNotifierItem").size() == turn; }));
    if (turn == 1) {
      const auto menu = bus().proxy(watcher.calls("RegisterStatusNotifierItem")[0][0].get<std::string>(), "/MenuBar");
      EXPECT_TRUE(choose(*menu, "Pause recording"));
      EXPECT_TRUE(eventually([&] { return isPaused(); }));
      EXPECT_TRUE(eventually([&] { return choose(*menu, "Resume recording"); })) << "its label follows";
      EXPECT_TRUE(eventually([&] { return !isPaused(); }));
      EXPECT_TRUE(choose(*menu, "Quit"));
    } else {
      program.signal(SIGTERM);
    }
    EXPECT_EQ(program.wait(10), 0);
    EXPECT_FALSE(std::filesystem::exists(folder.path() / "halvo-app.sock")) << "nothing is left";
    EXPECT_TRUE(rows("ui_closed").empty()) << "which is no dismissal";
  }
}

}  // namespace
}  // namespace halvo
