// What a desktop knows of itself: its health, its look, where its data goes, and its models.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>

#include <sys/stat.h>

#include "AmbitudeAppKit/Stores/Appearance.h"
#include "AmbitudeAppKit/Stores/DataRootSetup.h"
#include "AmbitudeAppKit/Stores/Health.h"
#include "AmbitudeAppKit/Stores/ModelShelf.h"
#include "CaptureShared/DataRoot/AgentConfig.h"
#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Net/HTTPTransportRouter.h"
#include "CaptureShared/Recording/Supervision/RecordingControls.h"
#include "CaptureShared/Signals/Schema.h"
#include "CaptureShared/Signals/SignalsNotes.h"
#include "Platform/Testing/FakePlatform.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {

namespace fs = std::filesystem;

class SettingUpTest : public testing::Test {
 protected:
  SettingUpTest() {
    ::setenv("HOME", home.path().c_str(), 1);
    ::unsetenv("AMBITCAP_DATA_ROOT");
    DataPaths::overrideConfigURL(config);
  }
  ~SettingUpTest() override { DataPaths::overrideConfigURL(std::nullopt); }

  test::TemporaryFolder home;
  fs::path root = home.path() / "data", config = home.path() / "support/config.json";
};

TEST_F(SettingUpTest, theHealthLineReadsWhatWasWritten) {
  constexpr std::int64_t nowMs = 1'800'000'000'000;
  const auto title = [] { return Health::look(processEnvironment(), nowMs).title; };
  ::setenv("AMBITCAP_DATA_ROOT", root.c_str(), 1);
  EXPECT_EQ(title(), "Recording nothing");
  const BackgroundAgentState running[] = {{.runState = BackgroundAgentState::Running{7}}};
  EXPECT_EQ(Health::complaints(running, processEnvironment(), nowMs).size(), 1u) << "there is nowhere to record to";
  for (const auto& agent : backgroundAgents) home.write(".config/systemd/user/" + label(agent.agent) + ".service", "");
  const auto worked = [&](const char* file, std::int64_t agoMs) {
    home.write(fs::path("data") / file, "x");
    const auto at = std::chrono::sys_time<std::chrono::milliseconds>(std::chrono::milliseconds(nowMs - agoMs));
    fs::last_write_time(root / file, std::chrono::file_clock::from_sys(at));
  };
  worked("video/display-0/frame_timestamps.csv", 1'000);
  worked("classifier-cadence.json", 1'000);
  worked("io-layer/coach-driver.pid", 1'000);
  EXPECT_EQ(title(), "Working");
  worked("video/display-0/frame_timestamps.csv", 400'000);
  EXPECT_EQ(title(), "Capture is silent");
  {
    SQLiteDB db(DataPaths::signalsDB(root), SQLiteDB::Role::owner);
    Schema::createAll(db);
    const auto sampled = [&](std::int64_t agoMs, const char* app) {
      db.insert("INSERT INTO ticks (ts_ms, frontmost_app, idle_any_sec) VALUES (?, ?, ?)", {nowMs - agoMs, std::string(app), 900.0});
    };
    sampled(300'000, "loginwindow");
    EXPECT_EQ(title(), "Capture is silent") << "a lock that was told too long ago";
    sampled(2'000, "LoginWindow");
    EXPECT_EQ(title(), "Working") << "a locked screen is not recorded on purpose";
    sampled(1'000, "Firefox");
  }
  EXPECT_EQ(title(), "Capture is silent");
  RecordingControls{}.paused(nowMs - 1, nowMs + 60'000).write(root);
  EXPECT_EQ(title(), "Recording paused until 3:01");
  RecordingControls{.pausedUntilMs = nowMs - 1'000}.write(root);
  EXPECT_EQ(title(), "Working") << "the pause is only just over";
  SignalsStaleNoteStore::write({.lastGoodTickAtMs = nowMs - 200'000, .updatedAtMs = nowMs}, SignalsStaleNoteStore::url(root));
  EXPECT_EQ(title(), "Capture is silent") << "what the classifier misses speaks against the pair";
  fs::remove_all(home.path() / ".config");
  EXPECT_EQ(Health::look(processEnvironment(), nowMs).detail, "Classifier, Coach; not installed: Capture");
}

TEST_F(SettingUpTest, theLookIsKeptPrivatelyAndReadWithCare) {
  const auto file = home.path() / "new/appearance.json";
  const Appearance dark{.mode = Appearance::Mode::dark, .textPercent = 150};
  dark.write(file);
  EXPECT_EQ(Appearance::read(file), dark);
  struct stat info {};
  ::stat(file.c_str(), &info);
  EXPECT_EQ(info.st_mode & 0777, 0600u);
  EXPECT_EQ(Appearance::read(home.path() / "none"), Appearance{});
  for (const auto* text : {"", "[]", "{\"mode\": 3, \"text_percent\": \"big\"}", "{\"mode\": \"pink\", \"text_percent\": 9999999}"})
    EXPECT_EQ(Appearance::decode(text), Appearance{}) << text;
}

TEST_F(SettingUpTest, aDataRootIsMadeOnceAndNeverInPlaceOfOneThatIsAway) {
  using DataRootSetup::State, DataRootSetup::state;
  EXPECT_EQ(state(), State::unconfigured);
  home.write("full/letter.txt", "dear");
  const struct { fs::path root; const char* objection; } bad[] = {
      {"data", "whole path"}, {home.path(), "of its own"}, {"/", "of its own"}, {home.path() / "full", "letter.txt"},
      {home.path() / "full/letter.txt", "no folder"}, {home.path() / "volume/data", "is not there"}};
  for (const auto& c : bad) {
    EXPECT_NE(DataRootSetup::objection(c.root.string()).value_or("").find(c.objection), std::string::npos) << c.root;
    EXPECT_THROW(DataRootSetup::carryOut({.root = c.root}), std::runtime_error);
  }
  EXPECT_FALSE(fs::exists(config)) << "a refusal changes nothing";

  DataRootSetup::carryOut({.root = root, .physicalMemoryBytes = std::uint64_t{16} << 30});
  EXPECT_EQ(state(), State::ready);
  EXPECT_EQ(AgentConfig::load(config).settings.at("AMBITCHECK_MODEL"), "gemma4:e4b-it-qat");
  struct stat info {};
  ::stat(root.c_str(), &info);
  EXPECT_EQ(info.st_mode & 0777, 0700u);

  fs::rename(root, home.path() / "unmounted");
  EXPECT_EQ(state(), State::away);
  EXPECT_NE(DataRootSetup::reason(State::away).find("isn't mounted"), std::string::npos);
  EXPECT_FALSE(fs::exists(root));
  home.write("support/config.json", "{,");
  EXPECT_EQ(state(), State::damaged);
}

TEST_F(SettingUpTest, modelsAreChosenAndRefusedInWords) {
  FakeMachine machine;
  const auto transport = HTTPTransportRouter::standard();
  const ModelShelf shelf({.environment = {{"HOME", home.path().string()}}, .machine = machine, .transport = *transport});
  const auto words = [](const ModelShelf::Outcome& outcome) {
    if (const auto* done = std::get_if<ModelShelf::Done>(&outcome)) return done->lines.at(0);
    return std::get<ModelShelf::Failed>(outcome).why;
  };
  const auto ignore = [](const auto&) {};
  EXPECT_EQ(shelf.configured(), "gemma4:12b-it-qat");
  EXPECT_EQ(words(shelf.choose("library/gemma4:e2b-it-qat")), "gemma4:e2b-it-qat is chosen; it holds once the background programs are restarted");
  EXPECT_EQ(shelf.configured(), "gemma4:e2b-it-qat");
  EXPECT_EQ(words(shelf.choose("llama")), "there's no download for llama");
  EXPECT_EQ(words(shelf.install("gemma4:e2b-it-qat", ignore, {})),
            "no download server is configured: set AMBITCAP_MODEL_HOST to its https address");
  EXPECT_EQ(words(shelf.remove("gemma4:e2b-it-qat")), "gemma4:e2b-it-qat isn't here");
  EXPECT_NE(words(shelf.verify("gemma4:e2b-it-qat", ignore, {})).find("gemma-4-E2B"), std::string::npos);
}

}  // namespace
}  // namespace halvo
