#include "Platform/Linux/XDesktopReader.h"

#include <chrono>

#include <gtest/gtest.h>

#include "tests/support/Eventually.h"
#include "tests/support/TestWindow.h"
#include "tests/support/XServer.h"

namespace halvo {
namespace {

using test::eventually;
using test::TestWindow;
using test::XServer;

std::vector<std::string> names(const XFacts& facts) {
  std::vector<std::string> found;
  for (const auto& window : facts.windows.value_or(std::vector<WindowInfo>{})) found.push_back(window.ownerName);
  return found;
}

class XDesktopReaderTest : public testing::Test {
 protected:
  XServer server;
  std::vector<std::string> log;
  XDesktopReader reader{{.display = server.display(), .log = [this](const std::string& line) { log.push_back(line); }}};
};

TEST_F(XDesktopReaderTest, windowsFrontToBackWithAllThatTheyTell) {
  using Names = std::vector<std::string>;
  EXPECT_EQ(reader.read().windows, std::vector<WindowInfo>{}) << "an empty desktop is no unknown one";

  TestWindow editor(server.display(),
                    {.title = "essay.txt – Éditeur", .className = "gedit", .pid = 4242, .gtkApplicationID = "org.gnome.gedit"});
  TestWindow browser(server.display(), {.className = "firefox", .oldTitle = "Caf\xE9", .x = 300, .y = 200});
  browser.activate();
  ASSERT_TRUE(eventually([&] { return names(reader.read()) == Names{"firefox", "gedit"}; }));
  editor.activate();
  ASSERT_TRUE(eventually([&] { return names(reader.read()) == Names{"gedit", "firefox"}; }));

  const auto facts = reader.read();
  EXPECT_EQ(facts.frontmostApp, (FrontmostApp{.name = "gedit", .bundleID = "org.gnome.gedit", .pid = 4242}));
  const auto& front = facts.windows->at(0);
  EXPECT_EQ(front.title, "essay.txt – Éditeur");
  EXPECT_EQ(front.bundleID, "org.gnome.gedit");
  EXPECT_EQ(front.ownerPID, 4242);
  EXPECT_EQ(front.layer, WindowInfo::layerNormal);
  EXPECT_FALSE(front.isFullscreen);
  EXPECT_EQ(front.bounds.width, 400);
  EXPECT_EQ(front.bounds.height, 300);
  const auto& behind = facts.windows->at(1);
  EXPECT_EQ(behind.title, "Café");
  EXPECT_EQ(behind.bundleID, std::nullopt);
  EXPECT_EQ(behind.ownerPID, std::nullopt);

  editor.setTitle("cut \xC3");
  EXPECT_TRUE(eventually([&] { return reader.read().windows->at(0).title == "cut \xEF\xBF\xBD"; }));
  editor.minimize();
  EXPECT_TRUE(eventually([&] { return names(reader.read()) == Names{"firefox"}; })) << "a minimised window is not on the screen";
}

TEST_F(XDesktopReaderTest, menusPanelsAndFullScreen) {
  TestWindow panel(server.display(), {.title = "panel", .className = "Panel", .x = 0, .y = 0, .width = 1280, .height = 30, .isDock = true});
  TestWindow video(server.display(), {.title = "video", .className = "mpv", .isFullscreen = true});
  video.activate();
  TestWindow menu(server.display(),
                  {.title = "menu", .className = "1Password", .x = 640, .y = 333, .width = 150, .height = 80, .isOverrideRedirect = true});
  TestWindow nameless(server.display(), {.isOverrideRedirect = true});

  std::vector<WindowInfo> windows;
  ASSERT_TRUE(eventually([&] {
    windows = reader.read().windows.value_or(std::vector<WindowInfo>{});
    return windows.size() == 3 && windows[1].isFullscreen && windows[1].bounds.width == 1280;
  }));
  EXPECT_EQ(windows[0], (WindowInfo{.ownerName = "1Password",
                                    .title = "menu",
                                    .layer = WindowInfo::layerPopUp,
                                    .bounds = {.x = 640, .y = 333, .width = 150, .height = 80}}));
  EXPECT_EQ(windows[1].ownerName, "mpv");
  EXPECT_EQ(windows[1].bounds, (Rect{.width = 1280, .height = 800}));
  EXPECT_EQ(windows[2].ownerName, "Panel");
  EXPECT_EQ(windows[2].layer, WindowInfo::layerDock);
}

TEST_F(XDesktopReaderTest, anotherWorkspacesWindowIsOnTheScreenUnlessItIsBehindACurtain) {
  using Names = std::vector<std::string>;
  TestWindow vault(server.display(), {.title = "vault", .className = "KeePassXC"});
  TestWindow editor(server.display(), {.title = "essay", .className = "gedit", .x = 600});
  ASSERT_TRUE(eventually([&] { return names(reader.read()) == Names{"gedit", "KeePassXC"}; }));
  vault.setWorkspace(1);  // mapped as it is: of a second monitor
  EXPECT_EQ(names(reader.read()), (Names{"gedit", "KeePassXC"}));
  TestWindow curtain(server.display(),
                     {.oldTitle = "mutter guard window", .x = 0, .y = 0, .width = 1280, .height = 800, .isOverrideRedirect = true});
  editor.activate();
  EXPECT_TRUE(eventually([&] { return names(reader.read()) == Names{"", "gedit"}; })) << "kept mapped, and not to be seen";
}

TEST(XDesktopReader, framesThatNobodyTellsOfMakeTheWindowsUnknown) {
  const XServer bare({.hasWindowManager = false});
  XDesktopReader reader({.display = bare.display()});
  const TestWindow named(bare.display(), {.className = "KeePassXC"});
  ASSERT_EQ(names(reader.read()), std::vector<std::string>{"KeePassXC"}) << "without any window manager windows tell of themselves";
  const TestWindow frame(bare.display(), {});
  EXPECT_EQ(names(reader.read()).size(), 1u);
  const TestWindow within(bare.display(), {.className = "1Password", .parent = frame.id()});
  EXPECT_EQ(reader.read().windows, std::nullopt);
}

TEST_F(XDesktopReaderTest, aWindowWithoutAClassIsItsProcesss) {
  TestWindow window(server.display(), {.title = "vault", .pid = static_cast<std::uint32_t>(::getpid())});
  ASSERT_TRUE(eventually([&] { return names(reader.read()).size() == 1; }));
  EXPECT_EQ(names(reader.read())[0], "test-platform-l") << "the kernel keeps 15 bytes of a program's name";
}

TEST_F(XDesktopReaderTest, keysAndMouseAreToldApart) {
  ASSERT_TRUE(reader.read().idle.any.has_value());
  server.input({"mousemove", "321", "123"});
  XFacts facts;
  ASSERT_TRUE(eventually([&] {
    facts = reader.read();
    return facts.pointer == Point{.x = 321, .y = 123};
  }));
  EXPECT_LT(*facts.idle.mouse, 2);
  // The mouse rests from here on, and a key is struck once it has done so for a while.
  ASSERT_TRUE(eventually([&] { return *reader.read().idle.mouse > 0.4; }));
  server.input({"key", "a"});
  ASSERT_TRUE(eventually([&] {
    facts = reader.read();
    return *facts.idle.key < *facts.idle.mouse;
  }));
  EXPECT_EQ(facts.idle.any, facts.idle.key);
  EXPECT_GT(*facts.idle.mouse, 0.4);
  server.input({"click", "1"});
  ASSERT_TRUE(eventually([&] {
    facts = reader.read();
    return *facts.idle.mouse < *facts.idle.key;
  }));
  EXPECT_EQ(facts.idle.any, facts.idle.mouse);
}

TEST_F(XDesktopReaderTest, theServerDiesAndComesBack) {
  ASSERT_TRUE(reader.read().windows.has_value());
  server.crash();
  for (int i = 0; i < 3; ++i) {
    const auto facts = reader.read();
    EXPECT_EQ(facts.windows, std::nullopt);
    EXPECT_EQ(facts.frontmostApp, std::nullopt);
    EXPECT_EQ(facts.idle, IdleSeconds{});
    EXPECT_EQ(facts.pointer, std::nullopt);
  }
  ASSERT_EQ(log.size(), 1u);
  EXPECT_EQ(log[0], "the display went away — windows, input and pointer stay unknown until it answers");
  server.restart();
  TestWindow editor(server.display(), {.className = "gedit"});
  EXPECT_TRUE(eventually([&] { return names(reader.read()) == std::vector<std::string>{"gedit"}; }));
  ASSERT_EQ(log.size(), 2u);
  EXPECT_EQ(log[1], "display " + server.display() + " is there again");
}

TEST_F(XDesktopReaderTest, aServerThatFallsSilentHoldsNobodyUp) {
  ASSERT_TRUE(reader.read().windows.has_value());
  server.freeze();
  for (int i = 0; i < 2; ++i) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(reader.read().windows, std::nullopt);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
  }
  EXPECT_EQ(log.size(), 1u);
  server.thaw();
  EXPECT_TRUE(eventually([&] { return reader.read().windows.has_value(); }));
}

TEST(XDesktopReader, noDisplayIsSaidOnce) {
  for (const auto& display : {std::optional<std::string>(), std::optional<std::string>(""), std::optional<std::string>(":4711")}) {
    int lines = 0;
    XDesktopReader reader({.display = display, .log = [&](const std::string&) { ++lines; }});
    for (int i = 0; i < 3; ++i) EXPECT_EQ(reader.read().windows, std::nullopt);
    EXPECT_EQ(lines, 1);
  }
}

TEST(XConnection, getsInWhereAServerStartsAfreshBehindItsLastClient) {
  for (int i = 0; i < 3; ++i) {
    const XServer server({.hasWindowManager = false, .more = {"-reset"}});
    EXPECT_NO_THROW(XConnection(server.display()));
  }
}

TEST(XDesktopReader, aRefusalIsToldFromAnAbsence) {
  const test::TemporaryFolder folder;
  // One key in the form of an Xauthority file: family, address, display, name, key, each length in two bytes. We don't present it.
  const auto field = [](const std::string& text) { return std::string{'\0', static_cast<char>(text.size())} + text; };
  folder.write("key", "\x01" + std::string(1, '\0') + field("host") + field("0") + field("MIT-MAGIC-COOKIE-1") + field("0123456789abcdef"));
  const XServer server({.hasWindowManager = false, .more = {"-auth", (folder.path() / "key").string()}});
  try {
    XConnection connection(server.display());
    FAIL() << "it let us in";
  } catch (const XUnavailable& error) {
    EXPECT_EQ(error.kind(), XUnavailable::Kind::refused) << error.what();
  }
}

}  // namespace
}  // namespace halvo
