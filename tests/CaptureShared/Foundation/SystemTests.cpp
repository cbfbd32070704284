#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <thread>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/LogFileRead.h"
#include "CaptureShared/Foundation/SingleInstance.h"
#include "CaptureShared/Foundation/Spawn.h"
#include "CaptureShared/Foundation/TerminationSignals.h"
#include "CaptureShared/Foundation/UserFolders.h"
#include "tests/support/Eventually.h"
#include "tests/support/SmallDisk.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {

namespace fs = std::filesystem;
using test::eventually;
using test::TemporaryFolder;

/// Gone, or a zombie that nobody has reaped yet.
bool hasEnded(pid_t pid) {
  const auto status = LogFileRead::attempt([&] { return readFile("/proc/" + std::to_string(pid) + "/stat"); });
  const auto* text = std::get_if<LogFileRead::Value<std::string>>(&status);
  return !text || text->value.find(") Z ") != std::string::npos;
}

int exitOf(pid_t pid) {
  int status = 0;
  EXPECT_TRUE(eventually([&] { return ::waitpid(pid, &status, WNOHANG) == pid; }));
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::size_t entriesIn(const fs::path& folder) {
  return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
}

TEST(Spawn, carriesInputAndOutputThroughAndTellsTheEnd) {
  const std::string text(1 << 20, 'x');
  const auto echoed = Spawn::capture("cat", {}, text, 20);
  ASSERT_TRUE(echoed);
  EXPECT_EQ(echoed->standardOutput, text);
  EXPECT_EQ(echoed->exitStatus, 0);
  EXPECT_EQ(Spawn::capture("/bin/sh", {"-c", "kill -9 $$"}, "", 20)->exitStatus, 137);
  // It closes its input unread and lives on: neither a signal nor a wait for it may come of that.
  const auto deaf = Spawn::capture("/bin/sh", {"-c", "exec 0<&-; echo said; exit 3"}, text, 20);
  ASSERT_TRUE(deaf);
  EXPECT_EQ(deaf->standardOutput, "said\n");
  EXPECT_EQ(deaf->exitStatus, 3);
  EXPECT_THROW(Spawn::capture("no-such-program-here", {}, "", 1), std::system_error);
}

TEST(Spawn, aDeadlineOrAStopKillsTheWholeFamily) {
  const TemporaryFolder folder;
  for (const bool byStop : {false, true}) {
    const auto note = folder.path() / (byStop ? "stopped" : "expired");
    std::stop_source stop;
    std::jthread stopper;
    if (byStop)
      stopper = std::jthread([&] {
        eventually([&] { return fs::exists(note) && fs::file_size(note) > 1; });
        stop.request_stop();
      });
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(
        Spawn::capture("/bin/sh", {"-c", "sleep 300 & echo $! > " + note.string() + "; wait"}, "", byStop ? 60 : 1, stop.get_token()));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(15));
    const auto grandchild = static_cast<pid_t>(std::stol(readFile(note)));
    EXPECT_TRUE(eventually([&] { return hasEnded(grandchild); }));
  }
  // Its output ends, it does not.
  EXPECT_FALSE(Spawn::capture("/bin/sh", {"-c", "exec 1>&-; exec sleep 300"}, "", 0.3));
}

TEST(Spawn, aBoundChildEndsWithTheThreadThatStartedIt) {
  auto pipe = Spawn::Pipe::make();
  pid_t child = 0;
  std::jthread([&] {
    child = Spawn::run("sh", {"-c", "echo $WORD >&5; exec sleep 300"}, Environment{{"WORD", "said"}, {"PATH", "/usr/bin:/bin"}},
                       {{pipe.write.fd(), 5}}, SIGTERM);
    pipe.write.reset();
    char said[8] = {};
    EXPECT_EQ(::read(pipe.read.fd(), said, sizeof said), 5);
    EXPECT_STREQ(said, "said\n");
    EXPECT_EQ(::getpgid(child), child);
    EXPECT_FALSE(Spawn::reap(child));
  }).join();
  std::optional<int> status;
  EXPECT_TRUE(eventually([&] { return (status = Spawn::reap(child)).has_value(); }));
  EXPECT_EQ(status, 128 + SIGTERM);
  EXPECT_EQ(Spawn::reap(child), -1);
  EXPECT_THROW(Spawn::run("no-such-program-here", {}, {}, {}, SIGTERM), std::system_error);
  EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1) << "nothing of the failed start is left";
}

TEST(TerminationSignals, turnASignalIntoAStop) {
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
    int ready[2];
    ASSERT_EQ(::pipe(ready), 0);
    const pid_t child = ::fork();
    if (child == 0) {
      const TerminationSignals signals;
      ::kill(::getpid(), SIGPIPE);
      if (::write(ready[1], "r", 1) != 1) ::_exit(1);
      ::_exit(eventually([&] { return signals.token().stop_requested(); }) ? 7 : 2);
    }
    char byte = 0;
    EXPECT_EQ(::read(ready[0], &byte, 1), 1);
    ::kill(child, signal);
    EXPECT_EQ(exitOf(child), 7) << signal;
    ::close(ready[0]);
    ::close(ready[1]);
  }
}

TEST(WriteFileAtomically, replacesPrivatelyOrNotAtAll) {
  const TemporaryFolder folder;
  const auto file = folder.path() / "state.json";
  folder.write("state.json", "old");
  fs::permissions(file, fs::perms::all);
  writeFileAtomically(file, "new");
  EXPECT_EQ(readFile(file), "new");
  EXPECT_EQ(fs::status(file).permissions(), fs::perms::owner_read | fs::perms::owner_write);

  fs::create_directory(folder.path() / "folder");
  folder.write("folder/child", "kept");
  EXPECT_THROW(writeFileAtomically(folder.path() / "folder", "x"), std::system_error);
  EXPECT_THROW(writeFileAtomically(folder.path() / "absent/x", "x"), std::system_error);
  EXPECT_EQ(entriesIn(folder.path()), 2u) << "a scrap was left";
}

TEST(WriteFileAtomically, aFullDiskLeavesTheOldFileAndNoScrap) {
  const test::SmallDisk disk;
  ASSERT_TRUE(disk.isThere()) << "mounting a small disk takes root";
  const auto file = disk.path() / "state.json";
  writeFileAtomically(file, "old");
  disk.fill(8192);
  try {
    writeFileAtomically(file, std::string(32'768, 'n'));
    FAIL() << "the disk was not full";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code(), std::errc::no_space_on_device);
    EXPECT_NE(std::string(error.what()).find("state.json"), std::string::npos);
  }
  EXPECT_EQ(readFile(file), "old");
  EXPECT_EQ(entriesIn(disk.path()), 2u);
}

TEST(UserFolders, aTemporaryFolderIsOursAloneOrRefused) {
  const TemporaryFolder folder;
  const auto mine = folder.path() / "mine", open = folder.path() / "open";
  fs::create_directory(mine);
  fs::permissions(mine, fs::perms::owner_all);
  fs::create_directory(open);
  fs::permissions(open, fs::perms::all);
  EXPECT_EQ(UserFolders::systemTemp({{"TMPDIR", mine.string()}}), mine);
  EXPECT_EQ(UserFolders::home({{"HOME", "not/absolute"}}).is_absolute(), true);
  ASSERT_EQ(::geteuid(), 0u) << "another account's folder takes root";

  // As an account of its own, so that the folder of the one who runs this is left alone.
  constexpr uid_t stranger = 54'321;
  const fs::path standard = "/tmp/ambitude-" + std::to_string(stranger);
  const struct { const char* name; std::function<void()> plant; bool accepted; } cases[] = {
      {"nothing there: made", [] {}, true},
      {"a link to a private folder", [&] { fs::create_directory_symlink(mine, standard); }, false},
      {"another account's folder", [&] { fs::create_directory(standard); }, false},
      {"open to others",
       [&] {
         fs::create_directory(standard);
         EXPECT_EQ(::chown(standard.c_str(), stranger, stranger), 0);
         fs::permissions(standard, fs::perms::all);
       },
       false},
  };
  for (const auto& c : cases) {
    fs::remove_all(standard);
    c.plant();
    const pid_t child = ::fork();
    if (child == 0) {
      if (::seteuid(stranger) != 0) ::_exit(9);
      try {
        ::_exit(UserFolders::systemTemp({{"TMPDIR", open.string()}}) == standard ? 0 : 2);
      } catch (const std::runtime_error&) {
        ::_exit(1);
      }
    }
    EXPECT_EQ(exitOf(child), c.accepted ? 0 : 1) << c.name;
  }
  fs::remove_all(standard);
}

TEST(SingleInstance, oneHoldAtATime) {
  const test::TemporaryFolder folder;
  const auto file = folder.path() / "pid";
  auto first = SingleInstance::acquire(file);
  ASSERT_TRUE(first);
  EXPECT_EQ(readFile(file), std::to_string(::getpid()) + "\n");
  EXPECT_FALSE(SingleInstance::acquire(file));
  EXPECT_TRUE(first->isOf(file));
  fs::rename(file, folder.path() / "away");
  EXPECT_FALSE(first->isOf(file));
  EXPECT_TRUE(SingleInstance::acquire(file)) << "another disk";
  EXPECT_FALSE(first->isOf(file));
  first.reset();
  EXPECT_TRUE(SingleInstance::acquire(folder.path() / "away"));
  EXPECT_THROW(SingleInstance::acquire(folder.path() / "none" / "pid"), std::system_error);
}

}  // namespace
}  // namespace halvo
