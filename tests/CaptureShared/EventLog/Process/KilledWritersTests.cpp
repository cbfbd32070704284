// Eight processes append to one log while some of them are killed inside their writes and replaced, and a follower reads along.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <map>
#include <random>
#include <set>

#include <fmt/format.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "CaptureShared/EventLog/IncrementalJSONLReader.h"
#include "CaptureShared/EventLog/JSONLAppend.h"
#include "CaptureShared/EventLog/LineSplitter.h"
#include "CaptureShared/Foundation/Match.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {

constexpr int writerCount = 8;
constexpr int rowsEach = 20'000;
constexpr int killCount = 600;

/// Whose row it is and which of its rows.
using Row = std::pair<int, int>;

/// Most rows are short; some are as long as a stored prompt, so that a kill can fall inside their write.
std::string textOf(Row row) {
  const std::size_t size = row.second % 50 == 0 ? 64'000 : 60 + static_cast<std::size_t>(row.second * 7919 % 400);
  return fmt::format(R"({{"w":{},"n":{},"pad":"{}"}})", row.first, row.second, std::string(size, static_cast<char>('a' + row.second % 26)));
}

std::optional<Row> decode(std::string_view line) {
  const auto value = JSONValue::parse(line);
  const auto* object = value ? value->objectValue() : nullptr;
  if (!object || !object->integer("w") || !object->integer("n")) return std::nullopt;
  const Row row{static_cast<int>(*object->integer("w")), static_cast<int>(*object->integer("n"))};
  return textOf(row) == line ? std::optional(row) : std::nullopt;
}

/// What the writers tell the one who kills them, in memory that all of them share.
struct Progress {
  std::atomic<int> begun[writerCount];     ///< rows whose append was called
  std::atomic<int> finished[writerCount];  ///< rows whose append returned
  std::atomic<int> allowed;                ///< rows each may write for now, so that the kills are spread over the whole run
};

class KilledWriters : public ::testing::Test {
 protected:
  KilledWriters()
      : progress_(static_cast<Progress*>(::mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))),
        log_(folder_.path() / "events.jsonl") {
    writers_.fill(0);
  }
  ~KilledWriters() override {
    for (const pid_t writer : writers_)
      if (writer > 0) ::kill(writer, SIGKILL), ::waitpid(writer, nullptr, 0);
    ::munmap(progress_, sizeof(Progress));
  }

  void start(int writer) {
    const int first = progress_->begun[writer];
    writers_[static_cast<std::size_t>(writer)] = ::fork();
    if (writers_[static_cast<std::size_t>(writer)] != 0) return;
    for (int n = first; n < rowsEach; ++n) {
      const auto text = textOf({writer, n});
      while (n >= progress_->allowed) ::usleep(50);
      progress_->begun[writer] = n + 1;
      JSONLAppend::append(text, log_);
      progress_->finished[writer] = n + 1;
    }
    ::_exit(0);
  }

  test::TemporaryFolder folder_;
  Progress* progress_;
  std::filesystem::path log_;
  std::array<pid_t, writerCount> writers_;
};

TEST_F(KilledWriters, loseAtMostTheRowTheyWereWriting) {
  std::mt19937 random(std::random_device{}());
  std::set<Row> inDoubt;  // killed between the call and its return
  std::vector<Row> followed;
  IncrementalJSONLReader<Row> follower(log_, decode, 1000);
  auto follow = [&] {
    const bool isFirst = !follower.watermark();
    match(
        follower.read(),
        [&](Reset<Row>&& all) {
          EXPECT_TRUE(isFirst) << "the follower thought that the file was replaced";
          followed = std::move(all.rows);
        },
        [&](Appended<Row>&& more) { followed.insert(followed.end(), more.rows.begin(), more.rows.end()); });
  };

  JSONLAppend::append(textOf({writerCount, 0}), log_);  // so that the follower has a file from the start
  for (int writer = 0; writer < writerCount; ++writer) start(writer);
  for (int kills = 1; kills <= killCount; ++kills) {
    progress_->allowed = rowsEach / killCount * kills;
    const int victim = static_cast<int>(random() % writerCount);
    // Strike inside a write: half of the time inside a long one. Looking without a pause, for a write is over in microseconds.
    const bool wantsLong = random() % 2 == 0;
    const auto giveUp = std::chrono::steady_clock::now() + std::chrono::milliseconds(15);
    auto inWrite = [&] {
      const int begun = progress_->begun[victim];
      return begun > progress_->finished[victim] && (!wantsLong || (begun - 1) % 50 == 0);
    };
    while (!inWrite() && std::chrono::steady_clock::now() < giveUp) {
    }
    auto& pid = writers_[static_cast<std::size_t>(victim)];
    ::kill(pid, SIGKILL);
    ::waitpid(pid, nullptr, 0);
    if (progress_->begun[victim] > progress_->finished[victim]) inDoubt.emplace(victim, progress_->begun[victim] - 1);
    start(victim);
    if (kills % 4 == 0) follow();
  }
  progress_->allowed = rowsEach;
  for (auto& pid : writers_) {
    while (::waitpid(pid, nullptr, WNOHANG) != pid) follow();
    pid = 0;
  }
  follow();

  std::map<Row, int> seen;
  std::vector<Row> inFile;
  std::vector<std::string> broken;
  LineSplitter lines;
  lines.feed(readFile(log_), [&](std::string_view line) {
    if (const auto row = decode(line))
      ++seen[*row], inFile.push_back(*row);
    else
      broken.emplace_back(line);
  });
  EXPECT_EQ(lines.pendingBytes(), 0u);
  int lost = 0, twice = 0;
  for (int writer = 0; writer < writerCount; ++writer)
    for (int n = 0; n < rowsEach; ++n) {
      const int times = seen.contains({writer, n}) ? seen.at({writer, n}) : 0;
      if (times == 0 && !inDoubt.contains({writer, n})) ++lost;
      if (times > 1) ++twice;
    }
  std::printf("%d kills, %zu of them inside an append, %zu broken lines\n", killCount, inDoubt.size(), broken.size());
  EXPECT_EQ(lost, 0);
  EXPECT_EQ(twice, 0);
  EXPECT_LE(broken.size(), inDoubt.size());
  EXPECT_EQ(followed, inFile);
}

}  // namespace
}  // namespace halvo
