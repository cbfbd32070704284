#include <atomic>

#include <gtest/gtest.h>

#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Recording/Supervision/CaptureFaultStore.h"
#include "CaptureShared/Recording/Supervision/ComponentActivity.h"
#include "CaptureShared/Recording/Supervision/ReplacementTimer.h"
#include "CaptureShared/Recording/Supervision/SelfReplacementWatch.h"
#include "tests/support/Eventually.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {

using Watch = SelfReplacementWatch;

TEST(SelfReplacementWatch, check) {
  const ExecutableStamp old{1, 10, 100}, first{2, 20, 200}, second{2, 30, 200};
  const std::optional<ExecutableStamp> none;
  struct Look {
    std::optional<ExecutableStamp> current;
    double elapsed;
    Watch::Decision want;
  };
  const Watch::KeepRunning keep;
  const Watch::Settling firstSettles{first};
  const struct { const char* name; std::optional<ExecutableStamp> launch; std::vector<Look> looks; } cases[] = {
      {"never stamped", none, {{old, 500, Watch::NotWatching{}}}},
      {"too early, then held still, then once", old,
       {{first, 119, keep}, {first, 120, firstSettles}, {first, 150, Watch::ExitForNewBinary{old, first}}, {first, 180, keep}}},
      {"always another", old, {{first, 200, firstSettles}, {second, 230, Watch::Settling{second}}, {first, 260, firstSettles}}},
      {"unreadable forgets", old, {{first, 200, firstSettles}, {none, 230, Watch::Unreadable{}}, {first, 260, firstSettles}}},
      {"put back forgets", old, {{first, 200, firstSettles}, {old, 230, keep}, {first, 260, firstSettles}}}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Watch watch{.launchStamp = c.launch};
    for (const auto& look : c.looks) EXPECT_EQ(watch.check(look.current, look.elapsed), look.want) << look.elapsed;
  }
}

TEST(ReplacementTimer, endsTheProgramOnceItsFileWasReplaced) {
  test::TemporaryFolder folder;
  folder.write("program", "old");
  std::atomic<std::int64_t> nowMs = 0;
  std::atomic<int> ended = 0, looks = 0;
  const ReplacementTimer timer({.onReplaced = [&] { ++ended; },
                                .executable = folder.path() / "program",
                                .steadyMs = [&] { return nowMs.load(); },
                                .wait = [&](double sec, const std::stop_token& stop) {
                                  Clock::system().wait(0.002, stop);
                                  nowMs += static_cast<std::int64_t>(sec * 1000);
                                  ++looks;
                                }});
  ASSERT_TRUE(test::eventually([&] { return looks > 10; }));
  EXPECT_EQ(ended, 0);
  writeFileAtomically(folder.path() / "program", "new");
  EXPECT_TRUE(test::eventually([&] { return ended == 1; }));
}

TEST(CaptureFaultStore, keepsAFaultUntilItIsStale) {
  test::TemporaryFolder folder;
  const auto file = folder.path() / "support/capture-fault.json";
  const auto record = [&](CaptureFault::Kind kind, std::int64_t nowMs, int failures) {
    CaptureFaultStore::recordDirectly({.kind = kind, .detail = "d\"\n", .consecutiveFailures = failures, .nowMs = nowMs, .file = file});
    return *CaptureFaultStore::read(file);
  };
  using Kind = CaptureFault::Kind;
  CaptureFaultStore::clear(file);
  EXPECT_EQ(record(Kind::dataRootFull, 1'234, 1), (CaptureFault{Kind::dataRootFull, 1'234, 1'234, 1, "d\"\n"}));
  EXPECT_EQ(record(Kind::dataRootFull, 61'000, 2), (CaptureFault{Kind::dataRootFull, 1'234, 61'000, 2, "d\"\n"})) << "its beginning stays";
  EXPECT_EQ(record(Kind::crashLooping, 62'000, 3).sinceMs, 62'000);
  EXPECT_FALSE(CaptureFaultStore::isStale(*CaptureFaultStore::read(file), 62'000 + 1'800'000));
  EXPECT_TRUE(CaptureFaultStore::isStale(*CaptureFaultStore::read(file), 62'000 + 1'800'001));
  EXPECT_EQ(record(Kind::crashLooping, 62'000 + 1'800'001, 1).sinceMs, 62'000 + 1'800'001) << "a stale one is over";

  folder.write("newer", R"({"kind":"meteor","since":"1970-01-01T00:00:02Z","updatedAt":"1970-01-01T00:00:02.5Z","more":1})");
  EXPECT_EQ(CaptureFaultStore::read(folder.path() / "newer"), (CaptureFault{Kind::other, 2'000, 2'500, 0, ""}));
  for (const auto* text : {"", "[]", "{\"kind\":1}", R"({"kind":"other","since":"x","updatedAt":"y"})"}) {
    folder.write("bad", text);
    EXPECT_FALSE(CaptureFaultStore::read(folder.path() / "bad")) << text;
  }
  std::string told;
  CaptureFaultStore::recordDirectly({.file = "/proc/no/such.json", .log = [&](const std::string& line) { told = line; }});
  EXPECT_TRUE(told.starts_with("the capture fault \"other\" could not be written: ")) << told;
}

TEST(ComponentHealth, status) {
  using namespace ComponentHealth;
  const std::int64_t last = 1'000'000;
  const std::optional<Pause> onCall = Pause{.sinceMs = last};
  const struct { const char* name; Moment moment; Status want; } cases[] = {
      {"off", {.supervision = Supervision::offByChoice, .nowMs = last}, OffByChoice{}},
      {"never seen", {.pause = onCall, .nowMs = last}, Silent{.quietFor = 180}},
      {"exactly at the grace", {.lastActivityMs = last, .nowMs = last + 180'000}, Working{last}},
      {"a millisecond beyond", {.lastActivityMs = last, .nowMs = last + 180'001}, Silent{last, 180.001}},
      {"on a call", {.lastActivityMs = last, .pause = onCall, .nowMs = last + 180'000}, Paused{*onCall}},
      {"silent on a call", {.lastActivityMs = last, .pause = onCall, .nowMs = last + 181'000}, Silent{last, 181}},
      {"clock set back", {.lastActivityMs = last, .nowMs = 0}, Working{last}}};
  for (const auto& c : cases) EXPECT_EQ(status(c.moment), c.want) << c.name;

  std::vector<std::pair<Component, Status>> all{
      {Component::coach, Silent{}}, {Component::classifier, Silent{}}, {Component::capture, Working{}}};
  EXPECT_EQ(worstFault(all)->first, Component::classifier);
  all[0].second = all[1].second = Paused{};
  EXPECT_FALSE(worstFault(all));
}

TEST(ComponentActivity, isTheNewestSidecarOfAnyDisplay) {
  using ComponentHealth::Component;
  test::TemporaryFolder root;
  EXPECT_FALSE(ComponentActivity::last(Component::capture, root.path()));
  const auto write = [&](const char* file, int sec) {
    root.write(file, "x");
    const std::chrono::sys_seconds time{std::chrono::seconds(sec)};
    std::filesystem::last_write_time(root.path() / file, std::chrono::file_clock::from_sys(time));
  };
  write("video/display-0/frame_timestamps.csv", 500);
  write("video/display-1/frame_timestamps.csv", 700);
  write("video/copy/frame_timestamps.csv", 900);
  write("classifier-cadence.json", 800);
  EXPECT_EQ(ComponentActivity::last(Component::capture, root.path()), 700'000);
  EXPECT_EQ(ComponentActivity::last(Component::classifier, root.path()), 800'000);
}

}  // namespace
}  // namespace halvo
