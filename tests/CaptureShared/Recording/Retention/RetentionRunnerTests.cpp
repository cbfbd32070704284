// Runs, the fence before them and the settings behind them.

#include <gtest/gtest.h>

#include <cstdlib>
#include <thread>

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>

#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/Foundation/Digest.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Labels/LabelsWriter.h"
#include "CaptureShared/Recording/Retention/RetentionSettingsStore.h"
#include "Platform/Testing/FakePlatform.h"
#include "tests/CaptureShared/Recording/Retention/FakeDisk.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {

namespace Sweep = VideoRetentionSweep;
constexpr std::int64_t nowMs = 1'795'000'000'000, dayMs = 86'400'000, longAgoMs = nowMs - 9 * dayMs;
const RetentionSettings daily{.policy = VideoRetention::DeleteOlderThanDays{1}}, restarts{.deleteOnRestart = true};
const Calendar utc = Calendar::utc();

test::FakeDisk twoOldFiles() {
  const test::FakeDisk::Folder folder{{VideoRetention::hourPrefix(longAgoMs, utc) + ".mkv", {.bytes = 5, .writtenMs = longAgoMs}}};
  return {.folders = {{"display-0", folder}, {"display-1", folder}}, .settings = daily};
}

TEST(RetentionRunner, refusesInOrderAndSaysWhy) {
  auto disk = twoOldFiles();
  disk.settings = {};
  disk.fence.machineIsProtected = true;
  disk.isMounted = false;
  disk.labelled.reset();
  disk.unlistable = {"video", "display-1"};
  const struct { const char* explanation; std::function<void()> mend; } steps[] = {
      {"Retention is off, so nothing was deleted.", [&] { disk.settings = daily; }},
      {"This Mac is protected from purging recorded data, so nothing was deleted.", [&] { disk.fence.machineIsProtected = false; }},
      {"The data volume isn't mounted, so nothing was deleted.", [&] { disk.isMounted = true; }},
      {"Couldn't read the hand-label database, so nothing was deleted — sweeping without it could destroy the footage those labels were made from.",
       [&] { disk.labelled.emplace(); }},
      {"Couldn't list /data/video, so nothing was deleted.", [&] { disk.unlistable.erase("video"); }},
      {"Couldn't list /data/video/display-1, so nothing was deleted.", [&] { disk.unlistable.clear(); }},
  };
  for (const auto& step : steps) {
    std::string log;
    const auto shown = disk.run(false, nowMs, utc, [&](const auto& line) { log = line; });
    EXPECT_EQ(log, "");
    const auto done = disk.run(true, nowMs, utc, [&](const auto& line) { log = line; });
    ASSERT_TRUE(shown.refusal && done.refusal) << step.explanation;
    EXPECT_EQ(shown.refusal, done.refusal);
    EXPECT_EQ(Sweep::explanation(*done.refusal), step.explanation);
    EXPECT_EQ(log, disk.settings == daily ? "Retention: sweep refused — " + std::string(step.explanation) : "");
    EXPECT_EQ(disk.files(), 2u);
    step.mend();
  }
  EXPECT_EQ(disk.run(true, nowMs, utc).bytesFreed(), 10);
  EXPECT_EQ(disk.files(), 0u);
}

TEST(RetentionRunner, sweepsOnceARestart) {
  auto disk = twoOldFiles();
  disk.settings = restarts;
  disk.bootMs = nowMs - dayMs;
  auto& stubborn = disk.folders["display-1"].begin()->second;
  stubborn.cantBeRemoved = true;
  EXPECT_EQ(disk.run(true, nowMs, utc).failures().size(), 1u);
  EXPECT_EQ(disk.settings, restarts) << "a failure: again next time";
  stubborn.cantBeRemoved = false;
  disk.settingsCantBeWritten = true;
  EXPECT_TRUE(disk.run(true, nowMs, utc).didSweep());
  EXPECT_EQ(disk.files(), 0u);
  disk.settingsCantBeWritten = false;
  EXPECT_EQ(disk.run(true, nowMs, utc).outcomes.size(), 2u);
  EXPECT_EQ(disk.settings.lastRestartSweepBootMs, disk.bootMs);
  const auto result = disk.run(true, nowMs, utc);
  EXPECT_TRUE(result.didSweep() && result.outcomes.empty() && !result.includedRestartSweep);
  disk.folders = twoOldFiles().folders;
  disk.settings = restarts;
  disk.atRemoval = [&] { disk.settings = {}; };
  EXPECT_EQ(disk.run(true, nowMs, utc).filesDeleted(), 2u);
  EXPECT_EQ(disk.settings, RetentionSettings()) << "switched off meanwhile: this start's sweep was not asked for";
}

struct RetentionFolderTest : testing::Test {
  RetentionFolderTest() {
    ::setenv("HOME", folder.path().c_str(), 1);
    ::setenv("AMBITCAP_DATA_ROOT", root.c_str(), 1);
    folder.write("config.json", R"({"dataRoot": "/other"})");
    DataPaths::overrideConfigURL(folder.path() / "config.json");
    machine.bootMs = nowMs - dayMs;
    machine.name = "some machine";
  }
  ~RetentionFolderTest() override {
    ::unsetenv("AMBITCAP_DATA_ROOT");
    DataPaths::overrideConfigURL({});
  }
  void record(const std::string& name, std::int64_t writtenMs) {
    folder.write(display / name, "12345");
    const timespec time{writtenMs / 1000, 0}, times[] = {time, time};
    ASSERT_EQ(::utimensat(AT_FDCWD, (display / name).c_str(), times, 0), 0);
  }
  std::set<std::string> left() const {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(display)) names.insert(entry.path().filename());
    return names;
  }
  static void set(const RetentionSettings& settings) {
    RetentionSettingsStore::change(RetentionSettingsStore::path(processEnvironment()), [&](RetentionSettings& kept) { kept = settings; });
  }
  test::TemporaryFolder folder;
  std::filesystem::path root = folder.path() / "data", display = root / "video/display-0", link = root / "video/display-1";
  FakeMachine machine;
};

TEST_F(RetentionFolderTest, whatALabelWasMadeFromStaysWhateverTheZone) {
  const auto newYork = Calendar::named("America/New_York");
  const struct { const char* name; Calendar now; bool isHourTold, isTimeKept; } cases[] = {
      {"by the names of now's zone", newYork, false, false},
      {"by the names of the label's zone", Calendar::named("Asia/Tokyo"), true, false},
      {"by the last writes", Calendar::named("Asia/Tokyo"), false, true}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    set(daily);
    std::filesystem::create_directories(root);
    std::filesystem::remove(DataPaths::labelsDB(root));
    LabelsWriter::insert({.label = "on_task", .tickTsMs = newYork.instant(2026, 11, 16, 10, 15)}, newYork, DataPaths::labelsDB(root));
    if (!c.isHourTold) SQLiteDB(DataPaths::labelsDB(root)).run("UPDATE labels SET source_hour = 'x'");
    std::set<std::string> want;
    for (int hour = 2; hour < 14; ++hour) {
      const auto name = fmt::format("2026-11-16T{:02}.mkv", hour);
      record(name, c.isTimeKept ? newYork.instant(2026, 11, 16, hour + 1) : longAgoMs);
      if (hour >= 4 && hour <= 11) want.insert(name);
    }
    const auto environment = RetentionRunner::Environment::real(machine, c.now);
    RetentionRunner::run({.apply = true, .nowMs = nowMs, .calendar = c.now, .environment = environment});
    EXPECT_EQ(left(), want);
  }
}

TEST_F(RetentionFolderTest, removesOldHourFilesOnly) {
  set(restarts);
  auto environment = RetentionRunner::Environment::real(machine, utc);
  EXPECT_EQ(environment.fence().roots, (std::vector<std::filesystem::path>{root, "/other"}));
  auto run = [&](bool apply = true) {
    return RetentionRunner::run({.apply = apply, .nowMs = nowMs, .calendar = utc, .environment = environment});
  };
  EXPECT_EQ(run().refusal, Sweep::Refusal(Sweep::DataRootUnavailable{}));
  std::filesystem::create_directory(root);
  EXPECT_TRUE(run(false).didSweep()) << "nothing was ever recorded";
  for (const auto* name : {"2026-01-02T03.mkv", "2026-01-02T03.part2.mkv", "2026-01-02T05.mkv/x", "frames.csv"}) record(name, longAgoMs);
  record("2026-01-02T04.mkv", nowMs);
  std::filesystem::create_symlink(display / "frames.csv", display / "2026-01-02T06.mkv");
  std::filesystem::create_directory_symlink(folder.path(), link);
  EXPECT_EQ(run().refusal, Sweep::Refusal(Sweep::VideoDirUnreadable{link.string()}));
  std::filesystem::remove(link);
  folder.write("data/labels.sqlite", "");
  EXPECT_EQ(run().refusal, Sweep::Refusal(Sweep::LabelSetUnreadable{}));
  std::filesystem::remove(root / "labels.sqlite");
  // The user changes their mind during the sweep.
  environment.ops.removeFile = [&, real = environment.ops.removeFile](const std::filesystem::path& file) {
    set({.deleteOnRestart = true, .labelLookbackHours = 9});
    real(file);
  };
  EXPECT_EQ(run().bytesFreed(), 10);
  EXPECT_EQ(environment.settings(), (RetentionSettings{.deleteOnRestart = true, .lastRestartSweepBootMs = nowMs - dayMs, .labelLookbackHours = 9}));
  EXPECT_EQ(left(), (std::set<std::string>{"2026-01-02T04.mkv", "2026-01-02T05.mkv", "2026-01-02T06.mkv", "frames.csv"}));
  EXPECT_THROW(environment.ops.removeFile(display / "2026-01-02T06.mkv"), std::system_error);
}

TEST(PurgeGuard, knowsProtectedMachines) {
  const std::set<std::string> hashes{Digest::sha256Hex("lark-erase-fence-v1:AB-1")};
  for (const auto& serial : std::initializer_list<std::optional<std::string>>{{}, "", " \n", "ab-1", " Ab-1\n"})
    EXPECT_TRUE(PurgeGuard::isProtectedMachine(serial, hashes)) << serial.value_or("absent");
  EXPECT_FALSE(PurgeGuard::isProtectedMachine("ab-2", hashes));
}

TEST(PurgeGuard, fencesTheRootsOff) {
  const test::TemporaryFolder folder;
  folder.write("Root/video/x", "");
  std::filesystem::create_directory_symlink(folder.path() / "Root", folder.path() / "link");
  std::filesystem::create_symlink("loop", folder.path() / "loop");
  for (const auto* root : {"Root", "Root//", "link"}) {
    const PurgeGuard::Fence fence{.roots = {"/none", folder.path() / root}};
    for (const auto* path : {"Root/", "ROOT/Video", "other/../Root", "link/video", "loop/x"})
      EXPECT_TRUE(PurgeGuard::refusesDeletion(folder.path() / path, fence)) << path << " " << root;
    for (const auto* path : {"Root2", "."}) EXPECT_FALSE(PurgeGuard::refusesDeletion(folder.path() / path, fence)) << path << " " << root;
    EXPECT_FALSE(PurgeGuard::refusesDeletion(folder.path() / root, {.roots = fence.roots, .machineIsProtected = false}));
  }
  EXPECT_TRUE(PurgeGuard::refusesDeletion(folder.path(), {.roots = {"/"}}));
}

TEST(RetentionSettings, readsEveryFile) {
  const test::TemporaryFolder folder;
  const auto file = RetentionSettingsStore::path({{"HOME", folder.path() / "home"}});
  const RetentionSettings none, week{.policy = VideoRetention::DeleteOlderThanDays{7}};
  const RetentionSettings all{VideoRetention::DeleteOlderThanDays{0}, true, 1'795'590'029'000, 0, 48};
  EXPECT_EQ(RetentionSettingsStore::read(file), none);
  EXPECT_FALSE(RetentionSettingsStore::damage(file));
  RetentionSettingsStore::write(all, file);
  EXPECT_EQ(RetentionSettingsStore::read(folder.path() / "home/Library/Application Support/AmbitCapture/retention.json"), all);
  RetentionSettingsStore::write(none, file);
  EXPECT_EQ(readFile(file), "{\n  \"deleteOnRestart\": false,\n  \"labelLookaheadHours\": 1,\n  \"labelLookbackHours\": 6,\n  \"policy\": {}\n}\n");
  for (const auto* text : {"{}", R"({"policy":{}})", R"({"policy":null})", R"({"policy":{"days":null}})", R"({"policy":{"days":-1}})"})
    EXPECT_EQ(RetentionSettingsStore::decode(text), none) << text;
  EXPECT_EQ(RetentionSettingsStore::decode(R"({"policy":{"days":7},"deleteOnRestart":null,"labelLookbackHours":-3,"x":[]})"), week);
  for (const auto* text : {R"({"policy":{"days":7.5},"deleteOnRestart":true})", R"({"policy":{"days":"7"}})", R"({"policy":7})", "[]", "",
                           R"({"policy":{"days":1e300}})", R"({"policy":{"days":7},"deleteOnRestart":1})", R"({"policy":{"days":7},)",
                           R"({"policy":{"days":7},"labelLookbackHours":"6"})"}) {
    writeFileAtomically(file, text);
    EXPECT_EQ(RetentionSettingsStore::read(file), none) << text;
    EXPECT_TRUE(RetentionSettingsStore::damage(file)) << text;
    EXPECT_THROW(RetentionSettingsStore::change(file, [](auto& settings) { settings = {}; }), RetentionSettingsStore::Damaged);
    EXPECT_EQ(readFile(file), text) << "it stays for a person to mend";
  }
  RetentionSettingsStore::write(none, file);
  {
    std::vector<std::jthread> writers;
    for (int i = 0; i < 4; ++i)
      writers.emplace_back([&] {
        for (int k = 0; k < 25; ++k) RetentionSettingsStore::change(file, [](auto& settings) { ++settings.labelLookbackHours; });
      });
  }
  EXPECT_EQ(RetentionSettingsStore::read(file).labelLookbackHours, 106) << "no change is lost";
}

}  // namespace
}  // namespace halvo
