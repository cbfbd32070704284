#include "AmbitudeCore/Folds/CoachCorrectionsLog.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <set>

#include "AmbitudeCore/Folds/RewriteError.h"
#include "CaptureShared/EventLog/EventLogReader.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "tests/support/Eventually.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {

using namespace CoachCorrectionsLog;

class CorrectionsFileTest : public testing::Test {
 protected:
  test::TemporaryFolder folder;
  std::filesystem::path url = defaultURL(folder.path());
};

TEST_F(CorrectionsFileTest, changesKeepEverythingElse) {
  const CoachCorrection a{.atMs = 10, .text = "a", .scope = CoachCorrection::Scope::whatToSay, .lasts = CoachCorrection::Lasts::untilChanged};
  const CoachCorrection b{.atMs = 20, .text = "b", .expiresAtMs = 100, .lasts = CoachCorrection::Lasts::nextFewHours};
  EXPECT_THROW(readAll(url), std::system_error);
  EXPECT_EQ(write(a, url), 10);
  EXPECT_EQ(write(b, url), 20);
  EXPECT_EQ(write(a, url), 11) << "the time is the identity";
  EXPECT_TRUE(erase(11, url));
  EXPECT_FALSE(restore({}, url)) << "there is a file";
  EXPECT_EQ(readAll(url), (std::vector{a, b}));
  EXPECT_EQ(inForce(url, 100), std::vector{a});
  const std::string foreign = R"({"at_ms":30,"newer":true})", stump = R"({"at_ms":40,"te)";
  folder.write("coach-corrections.jsonl", readFile(url) + foreign + "\n" + R"({"at_ms":50,"text":"c","extra":[1]})" + "\n" + stump);
  EXPECT_EQ(markFolded(std::vector<std::int64_t>{50, 60}, 99, url), 1u);
  const auto before = readFile(url);
  EXPECT_NE(before.find(foreign + "\n" + R"({"at_ms":50,"extra":[1],"folded_at_ms":99,"text":"c"})" + "\n" + stump + "\n"), std::string::npos);
  EXPECT_EQ(pending(url), (std::vector{a, b}));
  EXPECT_FALSE(erase(12345, url));
  EXPECT_EQ(readFile(url), before) << "deleting what is not there changes nothing";
  EXPECT_TRUE(erase(20, url));
  EXPECT_EQ(readAll(url).size(), 2u);
  EXPECT_THROW(rewrite({{.atMs = 1, .text = "\xff"}}, url), RewriteError);
  rewrite({b}, url);
  EXPECT_EQ(readAll(url), std::vector{b});
  EXPECT_EQ(std::filesystem::status(url).permissions(), std::filesystem::perms(0600));
}

TEST_F(CorrectionsFileTest, anUnheldLockMeansNoWrite) {
  try {
    write({.atMs = 1, .text = "a"}, folder.path() / "absent" / "coach-corrections.jsonl");
    ADD_FAILURE();
  } catch (const LockError& error) {
    EXPECT_EQ(error.kind(), LockError::Kind::openFailed);
    EXPECT_EQ(error.code(), ENOENT);
  }
  const FileHandle other(::open((url.string() + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  ASSERT_EQ(::flock(other.fd(), LOCK_EX), 0);
  try {
    write({.atMs = 1, .text = "a"}, url);
    ADD_FAILURE();
  } catch (const LockError& error) {
    EXPECT_EQ(error.kind(), LockError::Kind::lockFailed);
  }
  EXPECT_FALSE(std::filesystem::exists(url));
}

TEST_F(CorrectionsFileTest, twoWritersUnderKillsLoseNoRow) {
  // Each child says on its pipe which row it has written, deletes every third again, and is killed at some point.
  std::set<std::int64_t> written;
  for (int round = 0; round < 5; ++round) {
    pid_t children[2];
    int ends[2][2];
    for (int who = 0; who < 2; ++who) {
      ASSERT_EQ(::pipe2(ends[who], O_CLOEXEC), 0);
      if ((children[who] = ::fork()) == 0) {
        for (std::int64_t i = 0;; ++i) {
          const std::int64_t at = 1'000'000LL * (round * 2 + who + 1) + i * 10;
          std::int64_t told = write({.atMs = at, .text = "row"}, url);
          if (i % 3 == 2) {
            const std::int64_t soonGone = -told;
            if (::write(ends[who][1], &soonGone, sizeof soonGone) < 0) ::_exit(1);
            erase(told, url);
          } else if (::write(ends[who][1], &told, sizeof told) < 0) {
            ::_exit(1);
          }
        }
      }
      ::close(ends[who][1]);
    }
    for (int who = 0; who < 2; ++who) {
      std::int64_t told = 0;
      for (int rows = 0; rows < 6 + round + who && ::read(ends[who][0], &told, sizeof told) == sizeof told; ++rows)
        if (told > 0) written.insert(told);
      ::kill(children[who], SIGKILL);
      ::waitpid(children[who], nullptr, 0);
      while (::read(ends[who][0], &told, sizeof told) == sizeof told)
        if (told > 0) written.insert(told);
      ::close(ends[who][0]);
    }
  }
  std::set<std::int64_t> there;
  for (const auto& row : readAll(url)) there.insert(row.atMs);
  EXPECT_GE(written.size(), 40u);
  for (const auto at : written) EXPECT_TRUE(there.contains(at)) << at;
}

}  // namespace
}  // namespace halvo
