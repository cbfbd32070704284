// The program itself, on a real display.

#include <csignal>

#include <gtest/gtest.h>

#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Signals/SignalsReader.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Eventually.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestWindow.h"
#include "tests/support/XServer.h"

namespace halvo {
namespace {

namespace fs = std::filesystem;
using test::eventually;

class SignalsProgramTest : public testing::Test {
 protected:
  test::ChildProcess start(const std::optional<std::string>& display) {
    auto environment = test::programEnvironment(folder.path(), root);
    if (display) environment["DISPLAY"] = *display;
    return test::ChildProcess::logged(HALVO_BIN "/Signals", {}, environment, folder.path() / "log");
  }
  std::optional<SignalsReader::TickRow> latest() {
    try {
      return SignalsReader(root / "signals.sqlite").latestTick();
    } catch (const SignalsReaderError&) {
      return std::nullopt;
    }
  }
  int logLines(const std::string& part) {
    int count = 0;
    const auto text = readFile(folder.path() / "log");
    for (const auto line : Text::split(text, '\n')) count += line.find(part) != std::string_view::npos;
    return count;
  }
  /// SIGTERM, and how it took it.
  static void expectPromptEnd(test::ChildProcess& program) {
    program.signal(SIGTERM);
    EXPECT_EQ(program.wait(1), 0);
  }

  test::TemporaryFolder folder;
  fs::path root = folder.path() / "data";
};

TEST_F(SignalsProgramTest, recordsTheDesktopThroughAKillAndALostDisplay) {
  fs::create_directory(root);
  test::XServer server;
  auto editor = std::make_optional<test::TestWindow>(server.display(), test::TestWindow::Options{.title = "essay", .className = "gedit"});
  editor->activate();
  auto program = start(server.display());
  ASSERT_TRUE(eventually([&] { return latest() && latest()->frontmostApp == "gedit"; }));
  EXPECT_TRUE(latest()->idleAnySec.has_value());
  EXPECT_EQ(SignalsReader(root / "signals.sqlite").contentWindow(latest()->tsMs, "gedit")->title, "essay");
  EXPECT_EQ(fs::status(root / "signals.sqlite").permissions(), fs::perms::owner_read | fs::perms::owner_write);

  program.signal(SIGKILL);
  ASSERT_EQ(program.wait(5), 128 + SIGKILL);
  const auto before = latest()->tsMs;
  program = start(server.display());
  ASSERT_TRUE(eventually([&] { return latest()->tsMs > before; }));
  {
    SQLiteDB db(root / "signals.sqlite", SQLiteDB::Role::reader);
    auto check = db.prepare("PRAGMA integrity_check");
    ASSERT_TRUE(check.step());
    EXPECT_EQ(check.optionalText(0), "ok");
  }

  server.crash();
  ASSERT_TRUE(eventually([&] { return !latest()->frontmostApp; })) << "rows go on, with nothing known";
  EXPECT_EQ(latest()->idleAnySec, std::nullopt);
  server.restart();
  editor.emplace(server.display(), test::TestWindow::Options{.className = "gedit"});
  editor->activate();
  EXPECT_TRUE(eventually([&] { return latest()->frontmostApp == "gedit"; }));
  EXPECT_EQ(logLines("the display went away"), 1);

  server.freeze();
  expectPromptEnd(program);
  server.thaw();
}

TEST_F(SignalsProgramTest, waitsForItsRootAndNeverMakesIt) {
  auto program = start(std::nullopt);
  ASSERT_TRUE(eventually([&] { return logLines("recording nothing") == 1; }));
  EXPECT_FALSE(fs::exists(root));
  fs::create_directory(root);
  ASSERT_TRUE(eventually([&] { return latest().has_value(); }));
  EXPECT_EQ(logLines("recording nothing"), 1);
  EXPECT_EQ(logLines("no display is named"), 1);
  EXPECT_EQ(latest()->frontmostApp, std::nullopt);
  expectPromptEnd(program);
  EXPECT_FALSE(fs::exists(root / "signals.sqlite-wal")) << "folded back at the end";
}

}  // namespace
}  // namespace halvo
