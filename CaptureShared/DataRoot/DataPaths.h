#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>

/// Where captured data lives. The root comes from AMBITCAP_DATA_ROOT when that is set, else from `config.json`, else there is none: nothing
/// ever falls back to a default place. The environment is read at every call; the file's value is kept until `invalidateConfigCache`.
namespace halvo::DataPaths {

namespace fs = std::filesystem;

enum class RootSource { environment, configFile, unconfigured };

/// `config.json` in the support folder, or the override.
fs::path configURL();
/// Reads another file in place of the standard `config.json`; absent takes that back.
void overrideConfigURL(std::optional<fs::path> file);

/// A path always; with no root configured one that is never created ("no-data-root-configured" beside the config file), so that every path under
/// it fails to open.
fs::path dataRoot();
RootSource dataRootSource();
/// The root that `config.json` names, whether or not the environment names another.
std::optional<fs::path> configuredRoot();
fs::path unconfiguredRoot();
/// What first-run setup offers; never used on its own.
fs::path defaultRootForNewInstall();

/// True when a root is configured, is a folder, and is not the empty mount point of a volume that fstab names and that is not mounted.
bool isDataRootAvailable();
/// Why it is not, in words for a log line.
std::string dataRootUnavailableReason();

void invalidateConfigCache();
/// True when the config file exists and cannot be read, is not JSON or not an object.
bool configFileExistsButFailedToParse();

/// Writes the `dataRoot` key, keeping all others, makes the sub-folders, and tells the observers when the root moved. Throws
/// `std::runtime_error` ("config exists but could not be read", "config is not valid JSON", "config must be a JSON object") and leaves the file as
/// it was; throws `std::system_error` when it can't be written.
void setConfiguredRoot(const fs::path& root);

/// Makes `video` and `io-layer` (0700) under an available root, marks them against file indexing, and makes the root private. False and nothing
/// done when the root is not available; it never makes the root itself. Throws `std::system_error` when a folder can't be made.
bool ensureSubdirsExist();

/// Called on the writer's thread after the root changed ("CaptureShared.DataPaths.rootDidChange").
void observeRootDidChange(std::function<void()> observer);

// Paths under a root.
fs::path signalsDB(const fs::path& root = dataRoot());
fs::path labelsDB(const fs::path& root = dataRoot());
fs::path manifestPath(const fs::path& root = dataRoot());
fs::path classifierCadence(const fs::path& root = dataRoot());
fs::path checkerLog(const fs::path& root = dataRoot());
fs::path ioLayerDir(const fs::path& root = dataRoot());
fs::path events(const fs::path& root = dataRoot());  ///< `io-layer/events.jsonl`
fs::path videoDir(const fs::path& root = dataRoot());
fs::path videoDir(int display, const fs::path& root);
fs::path frameTimestampsPath(int display, const fs::path& root = dataRoot());
fs::path frameMetaPath(int display, const fs::path& root = dataRoot());
/// `call-hold-override.json` in the support folder, outside the root.
fs::path callHoldOverride();

}  // namespace halvo::DataPaths
