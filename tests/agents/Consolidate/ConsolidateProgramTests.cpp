// The nightly job: its decisions with a model in the test's hands, and the real program against the practice model, killed again and again.

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <map>
#include <random>

#include "AmbitudeCore/Backends/ModelBackendError.h"
#include "AmbitudeCore/Memory/MemoryStore.h"
#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/EventLog/EventLogReader.h"
#include "CaptureShared/EventLog/EventLogWriter.h"
#include "Platform/Testing/FakePlatform.h"
#include "agents/Consolidate/ConsolidateJob.h"
#include "tests/AmbitudeCore/Coach/ScriptedBackend.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Eventually.h"
#include "tests/support/SmallDisk.h"

namespace halvo {
namespace {

constexpr std::int64_t stepMs = ConsolidateJob::stepIntervalSec * 1000;

struct JobScene {
  JobScene() {
    std::filesystem::create_directories(root / "io-layer");
    backend->answer = [this](const test::ScriptedBackend::Call& call, const std::stop_token&) {
      const bool isDigest = call.messages.at(0).content.find("Candidate facts") == std::string::npos;
      if (onCall) onCall();
      return ChatResponse{.text = isDigest ? R"({"summary":"s","facts":[{"text":"f","source_lines":[1]}],"lessons":[]})"
                                           : R"({"threads":[{"name":"t"}],"keep_fact_indices":[0],"lessons":[]})"};
    };
    add({.tsMs = nowMs - 3 * stepMs, .type = "app_chat_message", .detail = JSONObject{{"role", "user"}, {"text", "essay"}}});
  }
  void add(const EventLogEvent& event) const { EventLogWriter::append(event, DataPaths::events(root), "test", "1"); }
  void tick(const char* app) const {
    JSONLAppend::append(std::string_view(ClassifierTick{.at = ISO8601::utcMillis(nowMs), .frontmostApp = app}.encode()),
                        DataPaths::checkerLog(root));
  }
  int run(ConsolidateOptions options = {}) {
    log.clear();
    return ConsolidateJob({.dataRoot = root,
                           .makeBackend = [this](const auto&) { return backend; },
                           .power = &power,
                           .environment = environment,
                           .clock = {.nowMs = [this] { return nowMs; }, .wait = [](double, const std::stop_token&) {}},
                           .calendar = Calendar::utc(),
                           .log = [this](const std::string& line) { log.push_back(line); }},
                          options)
        .run({});
  }
  std::size_t calls() const { return backend->calls().size(); }
  int events(std::string_view type) const {
    const auto rows = EventLogReader::read(DataPaths::events(root));
    return static_cast<int>(std::count_if(rows.begin(), rows.end(), [&](const auto& row) { return row.type == type; }));
  }
  bool logged(std::string_view part) const {
    return std::any_of(log.begin(), log.end(), [&](const std::string& line) { return line.find(part) != std::string::npos; });
  }

  test::TemporaryFolder folder;
  std::filesystem::path root = folder.path() / "data";
  std::shared_ptr<test::ScriptedBackend> backend = std::make_shared<test::ScriptedBackend>();
  std::function<void()> onCall;
  FakePowerSource power;
  Environment environment;
  std::int64_t nowMs = 81'670 * stepMs + 60'000;
  std::vector<std::string> log;
};

TEST(ConsolidateJob, runsWhenNobodyIsThere) {
  JobScene scene;
  EXPECT_EQ(scene.run({.dryRun = true}), 0);
  EXPECT_TRUE(scene.logged("dreaming: 3 period(s) due; dry run, nothing is done"));
  EXPECT_FALSE(std::filesystem::exists(scene.root / "memory"));
  scene.tick("Mousepad");
  scene.run();
  EXPECT_TRUE(scene.logged("holding: he's at the machine"));
  EXPECT_EQ(scene.calls(), 0u);
  scene.tick("loginwindow");
  EXPECT_EQ(scene.run(), 0);
  EXPECT_EQ(scene.calls(), 4u);
  EXPECT_EQ(scene.backend->calls()[0].options, (ChatOptions{.maxTokens = 8192, .think = true, .turn = ChatTurn::background}));
  EXPECT_TRUE(scene.logged("coach output audit: clean."));
  scene.run();
  EXPECT_TRUE(scene.logged("holding: no pending periods"));
  EXPECT_EQ(scene.calls(), 4u);
  std::filesystem::remove(MemoryStore::standingURL(scene.root));
  scene.nowMs += 3'600'000;
  scene.tick("loginwindow");
  scene.run();
  EXPECT_EQ(scene.calls(), 5u) << "a memory that is missing is work too";
}

TEST(ConsolidateJob, yieldsWithinOneCallAndForPower) {
  JobScene scene;
  scene.onCall = [&] { scene.tick("Mousepad"); };
  scene.run();
  EXPECT_EQ(scene.calls(), 1u);
  EXPECT_EQ(scene.events("memory_consolidation_deferred_power_started"), 0);
  scene.run({.now = true});
  EXPECT_EQ(scene.calls(), 4u) << "by hand it runs on";

  JobScene powered;
  powered.onCall = [&] { powered.power.power = {.isPluggedIn = false, .batteryPercent = 29}; };
  powered.run();
  powered.run({.now = true});
  EXPECT_EQ(powered.calls(), 1u);
  EXPECT_TRUE(powered.logged("stopping: 29% draining ≤ floor 30%"));
  EXPECT_EQ(powered.events("memory_consolidation_deferred_power_started"), 1) << "one deferral, told once";
  powered.power.power.batteryPercent = 40;
  powered.onCall = nullptr;
  powered.run({.now = true});
  EXPECT_TRUE(powered.logged("40% — shedding load"));
  EXPECT_EQ(powered.events("memory_consolidation_deferred_power_ended"), 1);
  EXPECT_EQ(powered.events("memory_consolidation_failed"), 0);
}

TEST(ConsolidateJob, tellsWhatWentWrong) {
  JobScene scene;
  scene.onCall = [] { throw ModelBackendError::transportError("refused"); };
  EXPECT_EQ(scene.run(), 1);
  EXPECT_TRUE(scene.logged("consolidate FAILED: transport: refused"));
  const auto rows = EventLogReader::read(DataPaths::events(scene.root));
  ASSERT_EQ(rows.back().type, "memory_consolidation_failed");
  EXPECT_EQ(rows.back().detail.objectValue()->integer("periods_pending"), 3);
  EXPECT_EQ(rows.back().source, "coach-core");
  scene.onCall = nullptr;
  scene.backend->answer = [](const auto&, const auto&) { return ChatResponse{.text = "no"}; };
  EXPECT_EQ(scene.run({.now = true}), 0);
  EXPECT_EQ(scene.events("memory_consolidation_degenerate"), 1);
  // What the coach said is looked over, and the same findings are told once.
  scene.add({.tsMs = scene.nowMs - 10, .type = "app_chat_message", .detail = JSONObject{{"role", "coach"}, {"text", "I'll stay quiet."}}});
  scene.run({.now = true});
  scene.run({.now = true});
  EXPECT_EQ(scene.events("coach_output_audit_findings"), 1);
}

TEST(ConsolidateJob, aFullDiskKeepsThePeriodPendingAndLeavesNothingHalfWritten) {
  const test::SmallDisk disk(262'144);
  ASSERT_TRUE(disk.isThere()) << "mounting a small disk takes root";
  JobScene scene;
  scene.root = disk.path();
  scene.add({.tsMs = scene.nowMs - 3 * stepMs, .type = "app_chat_message", .detail = JSONObject{{"role", "user"}, {"text", "essay"}}});
  const auto log = readFile(DataPaths::events(scene.root));
  scene.onCall = [&] {
    if (scene.calls() == 2) disk.fill(0);
  };
  EXPECT_EQ(scene.run(), 1);
  EXPECT_EQ(MemoryStore::readAllDigests(scene.root).size(), 1u);
  EXPECT_TRUE(scene.logged("No space left on device"));
  for (const auto& item : std::filesystem::directory_iterator(MemoryStore::digestsFolder(scene.root)))
    EXPECT_EQ(item.path().extension(), ".json") << item.path();
  EXPECT_TRUE(readFile(DataPaths::events(scene.root)).starts_with(log));
  std::filesystem::remove(scene.root / "ballast");
  EXPECT_EQ(scene.run({.now = true}), 0);
  EXPECT_EQ(MemoryStore::readStanding(scene.root)->digestCount, 3);
}

/// The real program with a home, a data root and a practice model of its own.
struct ProgramScene {
  ProgramScene() {
    std::filesystem::create_directories(root / "io-layer");
    std::string said;
    model = test::ChildProcess::greeting(program("PracticeModel"), {"--listen", url}, environment(), said);
    url = said.substr(said.find("http"));
  }
  static std::string program(const std::string& name) { return std::string(HALVO_BIN) + "/" + name; }
  Environment environment() const {
    return test::programEnvironment(folder.path(), root, {{"TZ", "UTC"}, {"AMBITCAP_LOCAL_INFERENCE_ENDPOINT", url}});
  }
  /// A log of so many days: each declares, asks and answers, and leaves its nights quiet.
  void writeDays(int days, int messagesADay = 4) const {
    std::string log;
    for (int day = days; day > 0; --day)
      for (int i = 0; i < messagesADay; ++i) {
        const auto ms = nowMs - day * 4 * stepMs + i * (2 * stepMs / messagesADay);
        const auto detail = i == 0 ? fmt::format(R"("notes":"essay {}")", day)
                                   : fmt::format(R"("role":"{}","text":"words number {} of day {}")", i % 2 ? "coach" : "user", i, day);
        log += fmt::format(R"({{"ts_ms":{},"kind":"event","type":"{}","source":"coach-core","detail":{{{}}}}})", ms,
                           i == 0 ? "task_declared" : "app_chat_message", detail) +
               "\n";
      }
    folder.write("data/io-layer/events.jsonl", log);
  }
  test::ChildProcess start(std::vector<std::string> words = {"--now"}) const {
    return test::ChildProcess::logged(program("Consolidate"), words, environment(), folder.path() / "job.out");
  }
  std::string log() const { return readFile(folder.path() / "job.out"); }

  test::TemporaryFolder folder;
  std::filesystem::path root = folder.path() / "data";
  std::string url = "http://127.0.0.1:0";
  test::ChildProcess model;
  std::int64_t nowMs = Clock::system().nowMs();
};

TEST(ConsolidateProgram, killedAnywhereItLosesNothingAndDigestsNothingTwice) {
  ProgramScene scene;
  scene.writeDays(30);
  std::map<std::filesystem::path, std::string> known;
  std::mt19937 random(7);
  const auto digestsOnDisk = [&] {
    std::error_code none;
    return std::distance(std::filesystem::directory_iterator(MemoryStore::digestsFolder(scene.root), none), {});
  };
  int kills = 0;
  for (bool done = false; !done && kills < 400; kills += !done) {
    auto job = scene.start();
    // From before the first byte to a few periods on, however fast the machine is.
    const auto enough = digestsOnDisk() + static_cast<long>(random() % 6);
    std::optional<int> status;
    do status = job.wait(std::uniform_real_distribution<double>(0.0, 0.004)(random));
    while (!status && digestsOnDisk() < enough);
    if (!status) job.signal(SIGKILL);
    done = status == 0 || job.wait(5) == 0;
    for (const auto& digest : MemoryStore::readAllDigests(scene.root)) {
      const auto file = MemoryStore::digestURL(digest.periodStartTsMs, scene.root);
      const auto bytes = readFile(file);
      EXPECT_EQ(known.emplace(file, bytes).first->second, bytes) << "written twice: " << file;
    }
    EXPECT_NO_THROW(MemoryStore::readStanding(scene.root));
  }
  EXPECT_GT(kills, 15);
  const auto digests = MemoryStore::readAllDigests(scene.root);
  ASSERT_GE(digests.size(), 119u);
  for (std::size_t i = 1; i < digests.size(); ++i) ASSERT_EQ(digests[i].periodStartTsMs, digests[i - 1].periodEndTsMs) << "a hole";
  EXPECT_EQ(digests.back().periodEndTsMs, scene.nowMs / stepMs * stepMs);
  const auto memory = MemoryStore::readStanding(scene.root);
  ASSERT_TRUE(memory);
  EXPECT_EQ(memory->digestCount, static_cast<std::int64_t>(digests.size()));
  EXPECT_EQ(memory->threads.size(), 12u);
  EXPECT_EQ(memory->facts.size(), 30u);
  for (const auto& item : std::filesystem::directory_iterator(MemoryStore::digestsFolder(scene.root)))
    EXPECT_EQ(item.path().extension(), ".json") << "a scrap was left: " << item.path();
  // Around the last step: there is a whole memory, the old or the new, or none yet.
  for (int i = 0; i < 30; ++i, ++kills) {
    if (i % 3 == 0) std::filesystem::remove(MemoryStore::standingURL(scene.root));
    auto job = scene.start();
    if (!job.wait(std::uniform_real_distribution<double>(0.02, 0.09)(random))) job.signal(SIGKILL), job.wait(5);
    EXPECT_NO_THROW(MemoryStore::readStanding(scene.root));
  }
  EXPECT_EQ(scene.start().wait(20), 0);
  EXPECT_EQ(MemoryStore::readStanding(scene.root)->facts, memory->facts);
  RecordProperty("kills", kills);
}

TEST(ConsolidateProgram, theSecondOfTwoSkipsAndAStopEndsWithinASecond) {
  ProgramScene scene;
  scene.writeDays(3);
  scene.model = test::ChildProcess(ProgramScene::program("PracticeModel"), {"--listen", scene.url, "--fault", "hang"}, scene.environment());
  auto first = scene.start();
  ASSERT_TRUE(test::eventually([&] { return scene.log().find("period(s) pending") != std::string::npos; }));
  EXPECT_EQ(scene.start().wait(10), 0);
  EXPECT_NE(scene.log().find("another process already holds the dream lock -- skipping this pass"), std::string::npos);
  first.signal(SIGTERM);
  EXPECT_EQ(first.wait(1), 0);
  EXPECT_NE(scene.log().find("ended before it was done; the next run goes on from here"), std::string::npos);
  EXPECT_EQ(std::filesystem::exists(MemoryStore::standingURL(scene.root)), false);
}

TEST(ConsolidateProgram, aYearPassesInLittleMemory) {
  ProgramScene scene;
  scene.writeDays(365, 100);
  auto job = scene.start({"--now"});
  long peakKB = 0;
  ASSERT_TRUE(test::eventually(
      [&] {
        try {
          const auto status = readFile(fmt::format("/proc/{}/status", job.pid()));
          const auto at = status.find("VmHWM:");
          if (at != std::string::npos) peakKB = std::max(peakKB, std::strtol(status.c_str() + at + 6, nullptr, 10));
        } catch (const std::system_error&) {
        }
        return job.wait(0.05).has_value();
      },
      120));
  EXPECT_NE(scene.log().find("period 1459 of 14"), std::string::npos);
  EXPECT_NE(scene.log().find(" left"), std::string::npos);
  EXPECT_GT(peakKB, 1000);
#if !defined(__SANITIZE_ADDRESS__)  // which keeps what was freed for a while
  EXPECT_LT(peakKB, 100'000);
#endif
  const auto memory = MemoryStore::readStanding(scene.root);
  ASSERT_TRUE(memory);
  EXPECT_FALSE(memory->salvaged);
  EXPECT_GE(memory->digestCount, 1459);
  RecordProperty("peakKB", static_cast<int>(peakKB));
}

}  // namespace
}  // namespace halvo
