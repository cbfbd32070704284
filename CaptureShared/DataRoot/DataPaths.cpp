#include "CaptureShared/DataRoot/DataPaths.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <system_error>
#include <vector>

#include <fmt/format.h>
#include <sys/stat.h>

#include "CaptureShared/DataRoot/MountTable.h"
#include "CaptureShared/DataRoot/SpotlightExclusion.h"
#include "CaptureShared/Foundation/Environment.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/JSONValue.h"
#include "CaptureShared/Foundation/LockedValue.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Foundation/Translation.h"
#include "CaptureShared/Foundation/UserFolders.h"

namespace halvo::DataPaths {

namespace {

struct Cache {
  bool filled = false;
  std::optional<fs::path> configuredRoot;
};

LockedValue<Cache>& cache() {
  static LockedValue<Cache> cache;
  return cache;
}
LockedValue<std::optional<fs::path>>& configOverride() {
  static LockedValue<std::optional<fs::path>> file;
  return file;
}
LockedValue<std::vector<std::function<void()>>>& observers() {
  static LockedValue<std::vector<std::function<void()>>> list;
  return list;
}

fs::path home() { return UserFolders::home(processEnvironment()); }

std::string expandTilde(std::string_view path) {
  if (path == "~" || path.starts_with("~/")) return home().string() + std::string(path.substr(1));
  return std::string(path);
}

/// The file's `dataRoot`; a file that is absent, unreadable or no JSON object has none.
std::optional<std::string> readConfiguredRoot() {
  try {
    const auto config = JSONValue::parse(readFile(configURL()));
    const auto* root = config ? config->find("dataRoot") : nullptr;
    const auto* text = root ? root->stringValue() : nullptr;
    const auto trimmed = text ? Text::trim(*text) : std::string_view();
    return trimmed.empty() ? std::nullopt : std::optional(expandTilde(trimmed));
  } catch (const std::system_error&) {
    return std::nullopt;
  }
}

bool isFolder(const fs::path& path) {
  std::error_code ignored;
  return fs::is_directory(path, ignored);
}

void makeRootPrivate(const fs::path& root) {
  if (SpotlightExclusion::isUnsafeRoot(root, home())) return;
  if (::chmod(root.c_str(), 0700) != 0)
    std::fprintf(stderr,
                 "warning: Couldn't make %s private to this account (%s). If another account created this folder, it can still get at what's "
                 "saved here.\n",
                 root.c_str(), errnoText(errno).c_str());
}

}  // namespace

fs::path configURL() {
  if (const auto file = configOverride().get()) return *file;
  return UserFolders::supportDir(processEnvironment()) / "config.json";
}

void overrideConfigURL(std::optional<fs::path> file) {
  configOverride().set(std::move(file));
  invalidateConfigCache();
}

fs::path unconfiguredRoot() { return configURL().parent_path() / "no-data-root-configured"; }
fs::path defaultRootForNewInstall() { return UserFolders::supportDir(processEnvironment()) / "data"; }

std::optional<fs::path> configuredRoot() {
  return cache().with([](Cache& known) {
    if (!known.filled) known = {true, readConfiguredRoot()};
    return known.configuredRoot;
  });
}

fs::path dataRoot() {
  // Set to the empty text is set, yet it names no folder: "" joined to a name would be a path at "/" or in the working folder.
  if (const char* root = std::getenv("AMBITCAP_DATA_ROOT")) return *root ? fs::path(root) : unconfiguredRoot();
  if (const auto root = configuredRoot()) return *root;
  return unconfiguredRoot();
}

RootSource dataRootSource() {
  if (std::getenv("AMBITCAP_DATA_ROOT")) return RootSource::environment;
  return configuredRoot() ? RootSource::configFile : RootSource::unconfigured;
}

bool isDataRootAvailable() {
  if (dataRootSource() == RootSource::unconfigured) return false;
  const auto root = dataRoot();
  return isFolder(root) && !MountTable::isUnmountedMountPoint(root);
}

std::string dataRootUnavailableReason() {
  if (dataRootSource() == RootSource::unconfigured)
    return tr("no data root configured yet — run first-run setup or choose one in Settings");
  return tr("configured data root ({}) isn't mounted", dataRoot().string());
}

void invalidateConfigCache() { cache().set({}); }

bool configFileExistsButFailedToParse() {
  try {
    const auto config = JSONValue::parse(readFile(configURL()));
    return !config || !config->objectValue();
  } catch (const std::system_error& error) {
    return error.code() != std::errc::no_such_file_or_directory;
  }
}

void setConfiguredRoot(const fs::path& root) {
  const auto previous = dataRoot();
  const auto file = configURL();
  fs::create_directories(file.parent_path());
  SpotlightExclusion::ensureMarker(file.parent_path());
  JSONObject config;
  std::error_code ignored;
  if (fs::symlink_status(file, ignored).type() != fs::file_type::not_found) {
    std::string text;
    try {
      text = readFile(file);
    } catch (const std::system_error&) {
      throw std::runtime_error("config exists but could not be read");
    }
    const auto parsed = JSONValue::parse(text);
    if (!parsed) throw std::runtime_error("config is not valid JSON");
    if (!parsed->objectValue()) throw std::runtime_error("config must be a JSON object");
    config = *parsed->objectValue();
  }
  config.set("dataRoot", root.string());
  writeFileAtomically(file, JSONValue(std::move(config)).dumpPretty() + "\n");
  invalidateConfigCache();
  // The root has moved whether or not its folders can be made: who watches it is told either way.
  std::exception_ptr failure;
  try {
    ensureSubdirsExist();
  } catch (const std::system_error&) {
    failure = std::current_exception();
  }
  if (dataRootSource() == RootSource::configFile && dataRoot() != previous) {
    SpotlightExclusion::removeRecordedMarker(previous);
    for (const auto& observer : observers().get()) observer();
  }
  if (failure) std::rethrow_exception(failure);
}

bool ensureSubdirsExist() {
  if (!isDataRootAvailable()) return false;
  const auto root = dataRoot();
  const bool owned = SpotlightExclusion::rootLooksOwned(root);
  // One level each: the root exists, and its own making is never ours.
  makePrivateFolder(root / "video");
  makePrivateFolder(root / "io-layer");
  SpotlightExclusion::ensureDataRoot(root, owned, home());
  makeRootPrivate(root);
  return true;
}

void observeRootDidChange(std::function<void()> observer) {
  observers().with([&](auto& list) { list.push_back(std::move(observer)); });
}

fs::path signalsDB(const fs::path& root) { return root / "signals.sqlite"; }
fs::path labelsDB(const fs::path& root) { return root / "labels.sqlite"; }
fs::path manifestPath(const fs::path& root) { return root / "manifest.json"; }
fs::path classifierCadence(const fs::path& root) { return root / "classifier-cadence.json"; }
fs::path checkerLog(const fs::path& root) { return root / "checker-log.jsonl"; }
fs::path ioLayerDir(const fs::path& root) { return root / "io-layer"; }
fs::path events(const fs::path& root) { return ioLayerDir(root) / "events.jsonl"; }
fs::path videoDir(const fs::path& root) { return root / "video"; }
fs::path videoDir(int display, const fs::path& root) { return videoDir(root) / fmt::format("display-{}", display); }
fs::path frameTimestampsPath(int display, const fs::path& root) { return videoDir(display, root) / "frame_timestamps.csv"; }
fs::path frameMetaPath(int display, const fs::path& root) { return videoDir(display, root) / "frame_meta.jsonl"; }
fs::path callHoldOverride() { return UserFolders::supportDir(processEnvironment()) / "call-hold-override.json"; }

}  // namespace halvo::DataPaths
