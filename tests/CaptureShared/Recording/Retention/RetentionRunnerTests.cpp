// Runs, the fence before them and the settings behind them.

#include <gtest/gtest.h>

#include <cstdlib>

#include <fcntl.h>
#include <sys/stat.h>

#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/Foundation/Digest.h"
#include "CaptureShared/Foundation/FileHandle.h"
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
  const struct {
    const char* explanation;
    std::function<void()> mend;
  } steps[] = {
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
}

TEST(RetentionRunner, aRealFolder) {
  const test::TemporaryFolder folder;
  const auto root = folder.path() / "data", display = root / "video/display-0", link = root / "video/display-1";
  ::setenv("HOME", folder.path().c_str(), 1);
  ::setenv("AMBITCAP_DATA_ROOT", root.c_str(), 1);
  folder.write("config.json", R"({"dataRoot": "/other"})");
  DataPaths::overrideConfigURL(folder.path() / "config.json");
  RetentionSettingsStore::write(restarts, RetentionSettingsStore::path(processEnvironment()));
  FakeMachine machine;
  machine.bootMs = nowMs - dayMs;
  machine.name = "some machine";
  auto environment = RetentionRunner::Environment::real(machine, utc);
  EXPECT_EQ(environment.fence().roots, (std::vector<std::filesystem::path>{root, "/other"}));
  auto run = [&] { return RetentionRunner::run({.apply = true, .nowMs = nowMs, .calendar = utc, .environment = environment}); };
  EXPECT_EQ(run().refusal, Sweep::Refusal(Sweep::DataRootUnavailable{}));
  for (const auto* name : {"2026-01-02T03.mkv", "2026-01-02T03.part2.mkv", "2026-01-02T04.mkv", "2026-01-02T05.mkv/x", "frames.csv"}) {
    folder.write(display / name, "12345");
    const timespec time{(std::string_view(name).starts_with("2026-01-02T04") ? nowMs : longAgoMs) / 1000, 0}, times[] = {time, time};
    ASSERT_EQ(::utimensat(AT_FDCWD, (display / name).c_str(), times, 0), 0);
  }
  std::filesystem::create_symlink(display / "frames.csv", display / "2026-01-02T06.mkv");
  std::filesystem::create_directory_symlink(folder.path(), link);
  EXPECT_EQ(run().refusal, Sweep::Refusal(Sweep::VideoDirUnreadable{link.string()}));
  std::filesystem::remove(link);
  folder.write("data/labels.sqlite", "");
  EXPECT_EQ(run().refusal, Sweep::Refusal(Sweep::LabelSetUnreadable{}));
  std::filesystem::remove(root / "labels.sqlite");
  // The user changes their mind during the sweep.
  environment.ops.removeFile = [&, real = environment.ops.removeFile](const std::filesystem::path& file) {
    environment.persistSettings({.deleteOnRestart = true, .labelLookbackHours = 9});
    real(file);
  };
  EXPECT_EQ(run().bytesFreed(), 10);
  EXPECT_EQ(environment.settings(), (RetentionSettings{.deleteOnRestart = true, .lastRestartSweepBootMs = nowMs - dayMs, .labelLookbackHours = 9}));
  std::set<std::string> left;
  for (const auto& entry : std::filesystem::directory_iterator(display)) left.insert(entry.path().filename());
  EXPECT_EQ(left, (std::set<std::string>{"2026-01-02T04.mkv", "2026-01-02T05.mkv", "2026-01-02T06.mkv", "frames.csv"}));
  EXPECT_THROW(environment.ops.removeFile(display / "2026-01-02T06.mkv"), std::system_error);
  ::unsetenv("AMBITCAP_DATA_ROOT");
  DataPaths::overrideConfigURL({});
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
  EXPECT_FALSE(RetentionSettingsStore::isDamaged(file));
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
    EXPECT_TRUE(RetentionSettingsStore::isDamaged(file)) << text;
  }
}

}  // namespace
}  // namespace halvo
