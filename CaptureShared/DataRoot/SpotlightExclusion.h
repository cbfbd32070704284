#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <variant>

#include "CaptureShared/Foundation/Log.h"

/// The mark that keeps file indexers out: an empty file `.metadata_never_index`. Folders that are marked on record can be unmarked again, so that
/// an uninstall takes away only marks that the system placed itself.
namespace halvo::SpotlightExclusion {

namespace fs = std::filesystem;

inline constexpr const char* markerName = ".metadata_never_index";

struct Marked {};
struct Failed {
  std::string text;
};
using Outcome = std::variant<Marked, Failed>;

/// Marks an existing folder; with `record` the folder is also noted in `spotlight-markers.json` beside the config file. Never throws.
Outcome ensureMarker(const fs::path& folder, bool record = false);
/// Takes a mark away that is on record, and its note with it. Any other mark stays.
void removeRecordedMarker(const fs::path& folder);
/// True when the folder, links resolved, is the one that first-run setup offers.
bool rootLooksOwned(const fs::path& root);
/// True for "/", the home folder or the top of a volume, links resolved: never to be marked or made private as a whole.
bool isUnsafeRoot(const fs::path& root, const fs::path& home);
/// Marks an owned and safe root itself, else its `video` and `io-layer`. Warnings go to standard error.
void ensureDataRoot(const fs::path& root, bool owned, const fs::path& home);

struct Locations {
  fs::path supportDir = {};
  std::optional<fs::path> dataRoot = {};  ///< absent when it is not available
  fs::path modelsDir = {};
  fs::path logsDir = {};
};
/// Marks the standard folders that exist and answers the outcomes by path; failures go to `failureLog`.
std::map<fs::path, Outcome> ensureStandardLocations(const Locations& locations, const LogSink& failureLog);

}  // namespace halvo::SpotlightExclusion
