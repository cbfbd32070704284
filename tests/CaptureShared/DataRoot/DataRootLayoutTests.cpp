#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>

#include "CaptureShared/DataRoot/DataRootLayout.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {

namespace fs = std::filesystem;
using Names = std::vector<std::string>;

TEST(DataRootLayout, covers) {
  const struct { const char* path; bool covered;
  } cases[] = {
      {"signals.sqlite", true},
      {"signals.sqlite-journal", true},
      {"signals.sqlite-old", false},
      {"labels.sqlite-wal", true},
      {"signals.sqlite/x", false},
      {"video", true},
      {"video/display-0", true},
      {"video/display-0/x.mkv", true},
      {"video/display-", false},
      {"video/display-0/a/b/c", true},
      {"video/other", false},
      {"io-layer/events.jsonl", true},
      {"io-layer/other.txt", false},
      {"coach-fixtures/turn-.json", false},
      {"coach-fixtures/turn-1.json", true},
      {"coach-fixtures/turn-1.jsonl", false},
      {"memory/period-digests/2026/a", true},
      {"memory/.dream.lock", true},
      {"memory/x", false},
      {"signals-stale-note.json", true},
      {"", false},
      {"video//display-0", false},
      {"/video", false},
      {"config.json", false},
      {"video/display-0/../../diary.txt", false},
      {"model-request-dumps/..", false},
      {"Video", false},
  };
  for (const auto& c : cases) EXPECT_EQ(DataRootLayout::covers(c.path), c.covered) << c.path;
}

TEST(DataRootLayout, surveyAndRemovalOfOneRoot) {
  const test::TemporaryFolder folder;
  const auto root = folder.path() / "root";
  for (const char* file :
       {"signals.sqlite", "video/display-0/a.mkv", "video/mine.mov", "io-layer/events.jsonl", "memory/period-digests/d.json", "notes.txt"})
    folder.write(fs::path("root") / file, "x");
  fs::create_directories(root / "checker-log.jsonl");  // a folder that bears a file's name

  const auto survey = DataRootLayout::survey(root);
  EXPECT_EQ(survey.owned, (Names{"io-layer/events.jsonl", "memory/period-digests", "signals.sqlite", "video/display-0"}));
  EXPECT_EQ(survey.containers, (Names{"io-layer", "memory", "video"}));
  EXPECT_EQ(survey.unknown, (Names{"checker-log.jsonl", "notes.txt", "video/mine.mov"}));
  EXPECT_TRUE(DataRootLayout::survey(root / "absent").isEmpty());

  const auto refused = DataRootLayout::removeOwned(root, true);
  EXPECT_EQ(refused.failures, Names{root.string() + ": This Mac is protected from purging recorded data, so nothing was deleted."});
  EXPECT_TRUE(fs::exists(root / "signals.sqlite"));

  auto ops = DataRootLayout::RemovalOps::real();
  ops.removeTree = [&](const fs::path& path) {
    if (path.filename() == "events.jsonl") throw std::system_error(EIO, std::generic_category());
    if (path.filename() == "signals.sqlite") {
      fs::remove(path);  // someone else was quicker: nothing is left to report
      throw std::system_error(ENOENT, std::generic_category());
    }
    fs::remove_all(path);
  };
  const auto removal = DataRootLayout::removeOwned(root, false, ops);
  EXPECT_EQ(removal.failures, Names{(root / "io-layer/events.jsonl").string() + ": " + errnoText(EIO)});
  EXPECT_EQ(removal.leftBehind, (Names{(root / "video").string(), (root / "io-layer").string()}));
  EXPECT_FALSE(removal.rootRemoved);
  EXPECT_TRUE(fs::exists(root / "notes.txt") && fs::exists(root / "video/mine.mov") && !fs::exists(root / "memory"));

  fs::remove(root / "notes.txt");
  fs::remove(root / "video/mine.mov");
  fs::remove(root / "checker-log.jsonl");
  EXPECT_TRUE(DataRootLayout::removeOwned(root, false).rootRemoved);
  EXPECT_FALSE(fs::exists(root));
}

/// Every path under a folder with what it is and holds; links as links.
std::map<std::string, std::string> contents(const fs::path& folder) {
  std::map<std::string, std::string> found;
  for (const auto& item : fs::recursive_directory_iterator(folder))
    found[item.path().lexically_relative(folder).string()] =
        item.is_symlink() ? "link " + fs::read_symlink(item.path()).string() : item.is_directory() ? "folder" : readFile(item.path());
  return found;
}

TEST(DataRootLayout, removalNeverTouchesWhatIsForeign) {
  const Names names{"video",
                    "display-1",
                    "display-",
                    "io-layer",
                    "events.jsonl",
                    "memory",
                    "period-digests",
                    "coach-fixtures",
                    "turn-1.json",
                    "turn-x",
                    "signals.sqlite",
                    "diary.txt",
                    "mine",
                    ".dream.lock",
                    "model-request-dumps",
                    ".metadata_never_index"};
  std::mt19937 random(3);
  for (int round = 0; round < 150; ++round) {
    const test::TemporaryFolder folder;
    folder.write("outside/precious.txt", "precious");
    folder.write("outside/display-1/precious.mkv", "precious");
    const auto root = folder.path() / "root", outside = folder.path() / "outside";
    fs::create_directory(root);
    // A random tree: owned and foreign names in and out of their places, links to the outside and to each other.
    std::vector<fs::path> folders{root};
    for (int i = 0; i < 25; ++i) {
      const auto path = folders[random() % folders.size()] / names[random() % names.size()];
      if (fs::symlink_status(path).type() != fs::file_type::not_found) continue;
      switch (random() % 4) {
        case 0: fs::create_directory_symlink(random() % 2 ? outside : outside / "display-1", path); break;
        case 1: std::ofstream(path) << path.string(); break;
        default: fs::create_directory(path), folders.push_back(path);
      }
    }
    const auto outsideBefore = contents(outside);
    const auto before = contents(root);
    const auto removal = DataRootLayout::removeOwned(root, false);
    EXPECT_EQ(contents(outside), outsideBefore);
    EXPECT_EQ(removal.failures, Names{});
    const auto after = fs::exists(root) ? contents(root) : std::map<std::string, std::string>{};
    for (const auto& [path, value] : before) {
      // What the list does not cover is there, byte for byte; what it covers as a file or a link is gone.
      if (!DataRootLayout::covers(path)) {
        EXPECT_TRUE(after.contains(path) && after.at(path) == value) << path;
      } else if (value != "folder") {
        EXPECT_FALSE(after.contains(path)) << path;
      }
    }
    EXPECT_EQ(removal.rootRemoved, !fs::exists(root));
    EXPECT_EQ(removal.rootRemoved, after.empty());
  }
}

}  // namespace
}  // namespace halvo
