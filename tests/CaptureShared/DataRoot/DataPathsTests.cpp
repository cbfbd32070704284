#include <gtest/gtest.h>

#include "CaptureShared/DataRoot/AgentConfig.h"
#include "CaptureShared/DataRoot/MountTable.h"
#include "CaptureShared/DataRoot/SpotlightExclusion.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/JSONValue.h"
#include "tests/CaptureShared/DataRoot/Home.h"

namespace halvo {
namespace {

namespace fs = std::filesystem;
using DataPaths::RootSource;

fs::perms modeOf(const fs::path& path) { return fs::status(path).permissions(); }

TEST(DataPaths, resolvesTheRootFromOnePlaceAtATime) {
  test::Home home;
  const auto nowhere = home.supportDir() / "no-data-root-configured";
  const struct {
    const char* name;
    std::optional<std::string> environment;
    const char* config;
    fs::path root;
    RootSource source;
  } cases[] = {
      {"nothing", {}, nullptr, nowhere, RootSource::unconfigured},
      {"the file", {}, R"({"dataRoot":"/from/file"})", "/from/file", RootSource::configFile},
      {"the environment wins", "/from/env", R"({"dataRoot":"/from/file"})", "/from/env", RootSource::environment},
      {"set to nothing is set, and names no folder", "", R"({"dataRoot":"/from/file"})", nowhere, RootSource::environment},
      {"tilde", {}, R"({"dataRoot":"~/x"})", home.path() / "x", RootSource::configFile},
      {"trimmed", {}, R"({"dataRoot":" /a b\n"})", "/a b", RootSource::configFile},
      {"blank", {}, R"({"dataRoot":" \t "})", nowhere, RootSource::unconfigured},
      {"not a text", {}, R"({"dataRoot":7})", nowhere, RootSource::unconfigured},
      {"not JSON", {}, R"({"dataRoot":"/x",})", nowhere, RootSource::unconfigured},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    fs::remove(home.config());
    if (c.config) home.writeConfig(c.config);
    home.set("AMBITCAP_DATA_ROOT", c.environment);
    EXPECT_EQ(DataPaths::dataRoot(), c.root);
    EXPECT_EQ(DataPaths::dataRootSource(), c.source);
    EXPECT_FALSE(DataPaths::isDataRootAvailable());
    EXPECT_EQ(DataPaths::dataRootUnavailableReason(), c.source == RootSource::unconfigured
                                                          ? "no data root configured yet — run first-run setup or choose one in Settings"
                                                          : "configured data root (" + c.root.string() + ") isn't mounted");
  }
}

TEST(DataPaths, movingTheRootKeepsTheFileAndTellsTheObservers) {
  test::Home home;
  const auto first = home.path() / "first", second = home.path() / "second";
  fs::create_directories(first);
  fs::create_directories(second);
  static int told = 0;  // an observer stays for the life of the process
  DataPaths::observeRootDidChange([] { ++told; });
  DataPaths::setConfiguredRoot(first);
  EXPECT_EQ(told, 1);
  EXPECT_EQ(DataPaths::dataRoot(), first);
  EXPECT_TRUE(fs::is_directory(first / "video") && fs::is_directory(first / "io-layer"));
  AgentConfig::setEnvValue("m", "AMBITCAP_MODEL", home.config());
  DataPaths::setConfiguredRoot(second);
  EXPECT_EQ(told, 2);
  EXPECT_EQ(AgentConfig::load().settings.at("AMBITCAP_MODEL"), "m");

  // Its folders can't be made, yet the root has moved and that is told.
  const auto blocked = home.path() / "blocked";
  fs::create_directories(blocked);
  fs::create_symlink(blocked / "no/such/place", blocked / "video");
  fs::create_symlink("io-layer", blocked / "io-layer");
  DataPaths::setConfiguredRoot(blocked);
  EXPECT_EQ(told, 3);

  home.set("AMBITCAP_DATA_ROOT", first.string());
  DataPaths::setConfiguredRoot(second);
  EXPECT_EQ(told, 3) << "the environment still names the root";
}

TEST(DataPaths, anOddConfigFileIsNeverOverwritten) {
  test::Home home;
  const struct { const char* text; const char* why; } cases[] = {
      {R"({"dataRoot":"/x",})", "config is not valid JSON"}, {"", "config is not valid JSON"}, {"[]", "config must be a JSON object"}};
  for (const auto& c : cases) {
    home.writeConfig(c.text);
    try {
      DataPaths::setConfiguredRoot("/new");
      ADD_FAILURE() << c.text;
    } catch (const std::runtime_error& error) {
      EXPECT_STREQ(error.what(), c.why);
    }
    EXPECT_EQ(readFile(home.config()), c.text);
    EXPECT_TRUE(DataPaths::configFileExistsButFailedToParse());
  }
  fs::remove(home.config());
  EXPECT_FALSE(DataPaths::configFileExistsButFailedToParse());
  fs::create_directory(home.config());
  EXPECT_TRUE(DataPaths::configFileExistsButFailedToParse());
  EXPECT_THROW(DataPaths::setConfiguredRoot("/new"), std::runtime_error);
}

TEST(DataPaths, makesItsFoldersPrivateButNeverTheRoot) {
  test::Home home;
  const auto root = home.path() / "volume/root";
  home.set("AMBITCAP_DATA_ROOT", root.string());
  EXPECT_FALSE(DataPaths::ensureSubdirsExist());
  EXPECT_FALSE(fs::exists(home.path() / "volume"));

  fs::create_directories(root);
  fs::permissions(root, fs::perms::all);
  EXPECT_TRUE(DataPaths::ensureSubdirsExist());
  for (const auto& folder : {root, root / "video", root / "io-layer"}) EXPECT_EQ(modeOf(folder), fs::perms::owner_all) << folder;
  EXPECT_TRUE(fs::exists(root / "video/.metadata_never_index"));
  EXPECT_FALSE(fs::exists(root / ".metadata_never_index")) << "a folder that may hold the user's own files is not marked";

  // The home folder as the root: its mode is the user's affair.
  fs::permissions(home.path(), fs::perms::owner_all | fs::perms::others_read);
  home.set("AMBITCAP_DATA_ROOT", home.path().string() + "/");
  EXPECT_TRUE(DataPaths::ensureSubdirsExist());
  EXPECT_EQ(modeOf(home.path()), fs::perms::owner_all | fs::perms::others_read);
}

TEST(SpotlightExclusion, takesAwayOnlyItsOwnMarks) {
  test::Home home;
  const auto offered = DataPaths::defaultRootForNewInstall(), other = home.path() / "other";
  fs::create_directories(offered);
  fs::create_directories(other);
  std::ofstream(other / SpotlightExclusion::markerName);
  DataPaths::setConfiguredRoot(offered);
  const auto record = home.supportDir() / "spotlight-markers.json";
  EXPECT_EQ(*JSONValue::parse(readFile(record)), JSONValue(JSONValue::Array{offered.string()}));
  EXPECT_TRUE(fs::exists(offered / SpotlightExclusion::markerName));

  // Someone else's mark is not put on record, so it stays.
  EXPECT_TRUE(std::holds_alternative<SpotlightExclusion::Marked>(SpotlightExclusion::ensureMarker(other, true)));
  SpotlightExclusion::removeRecordedMarker(other);
  EXPECT_TRUE(fs::exists(other / SpotlightExclusion::markerName));

  DataPaths::setConfiguredRoot(other);
  EXPECT_FALSE(fs::exists(offered / SpotlightExclusion::markerName));
  EXPECT_EQ(*JSONValue::parse(readFile(record)), JSONValue(JSONValue::Array{}));

  EXPECT_TRUE(SpotlightExclusion::rootLooksOwned(offered / "../data/"));
  fs::create_directory_symlink(offered, home.path() / "link");
  EXPECT_TRUE(SpotlightExclusion::rootLooksOwned(home.path() / "link"));
  EXPECT_FALSE(SpotlightExclusion::rootLooksOwned(other));
  for (const auto& unsafe : {fs::path("/"), home.path(), home.path() / "other/..", fs::path("/proc"), fs::path("/proc/")})
    EXPECT_TRUE(SpotlightExclusion::isUnsafeRoot(unsafe, home.path())) << unsafe;
  EXPECT_FALSE(SpotlightExclusion::isUnsafeRoot(other, home.path()));
}

TEST(MountTable, anOrdinaryFolderWhereAVolumeShouldBeIsNotThere) {
  test::Home home;
  const auto fstab = home.path() / "fstab", mounts = home.path() / "mounts";
  const auto volume = home.path() / "my volume", link = home.path() / "link";
  fs::create_directories(volume / "data");
  fs::create_directory_symlink(volume, link);
  auto escaped = volume.string();
  escaped.replace(escaped.find(' '), 1, "\\040");
  std::ofstream(fstab) << "# disks\nUUID=1 / ext4 defaults 0 1\n/dev/sdb1 " << escaped << " ext4 noauto 0 2\n/swap none swap sw 0 0\n";
  const std::string rootOnly = "/dev/sda1 / ext4 rw 0 0\n";
  auto missing = [&](const fs::path& path) { return MountTable::isUnmountedMountPoint(path, fstab, mounts); };

  std::ofstream(mounts) << rootOnly;
  for (const auto& path : {volume, volume / "data", volume / "data/", volume / "x/../data", link / "data"})
    EXPECT_TRUE(missing(path)) << path;
  for (const auto& path : {home.path(), home.path() / "my volume2", fs::path("/"), fs::path("relative")})
    EXPECT_FALSE(missing(path)) << path;

  std::ofstream(mounts) << rootOnly << "/dev/sdb1 " << escaped << " ext4 rw 0 0\n";
  EXPECT_FALSE(missing(volume / "data"));
  EXPECT_FALSE(missing(link / "data"));
  fs::remove(mounts);
  EXPECT_FALSE(missing(volume)) << "an unreadable table says nothing";
}

}  // namespace
}  // namespace halvo
