#include "CaptureShared/DataRoot/SpotlightExclusion.h"

#include <cerrno>
#include <cstdio>
#include <set>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/DataRoot/MountTable.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/JSONValue.h"

namespace halvo::SpotlightExclusion {

namespace {

fs::path recordFile() { return DataPaths::configURL().parent_path() / "spotlight-markers.json"; }

std::set<std::string> readRecord() {
  std::set<std::string> folders;
  try {
    if (const auto list = JSONValue::parse(readFile(recordFile())); list && list->arrayValue())
      for (const auto& entry : *list->arrayValue())
        if (const auto* folder = entry.stringValue()) folders.insert(*folder);
  } catch (const std::system_error&) {
    // No record yet, or one that can't be read: then no mark counts as ours, and none is taken away.
  }
  return folders;
}

void writeRecord(const std::set<std::string>& folders) {
  JSONValue::Array list;
  for (const auto& folder : folders) list.emplace_back(folder);
  writeFileAtomically(recordFile(), JSONValue(std::move(list)).dumpPretty() + "\n");
}

fs::path resolved(const fs::path& path) {
  std::error_code error;
  auto canonical = fs::weakly_canonical(path, error);
  if (error) canonical = path.lexically_normal();
  return canonical.has_filename() ? canonical : canonical.parent_path();
}

std::string warning(const fs::path& folder, const std::string& text) {
  return "warning: spotlight: " + folder.string() + ": " + text + "; Spotlight may index this folder";
}

void warnOnFailure(const fs::path& folder, const Outcome& outcome) {
  if (const auto* failed = std::get_if<Failed>(&outcome)) std::fprintf(stderr, "%s\n", warning(folder, failed->text).c_str());
}

}  // namespace

Outcome ensureMarker(const fs::path& folder, bool record) {
  const auto marker = folder / markerName;
  const int fd = ::open(marker.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (fd < 0) return errno == EEXIST ? Outcome(Marked{}) : Outcome(Failed{errnoText(errno)});
  ::close(fd);
  if (!record) return Marked{};
  try {
    auto folders = readRecord();
    folders.insert(folder.string());
    writeRecord(folders);
  } catch (const std::system_error& error) {
    return Failed{error.what()};
  }
  return Marked{};
}

void removeRecordedMarker(const fs::path& folder) {
  auto folders = readRecord();
  if (folders.erase(folder.string()) == 0) return;
  ::unlink((folder / markerName).c_str());
  try {
    writeRecord(folders);
  } catch (const std::system_error& error) {
    std::fprintf(stderr, "%s\n", warning(folder, error.what()).c_str());
  }
}

bool rootLooksOwned(const fs::path& root) { return resolved(root) == resolved(DataPaths::defaultRootForNewInstall()); }

bool isUnsafeRoot(const fs::path& root, const fs::path& home) {
  const auto real = resolved(root);
  return !real.has_relative_path() || real == resolved(home) || MountTable::isTopOfVolume(real);
}

void ensureDataRoot(const fs::path& root, bool owned, const fs::path& home) {
  if (owned && !isUnsafeRoot(root, home)) {
    warnOnFailure(root, ensureMarker(root, true));
    return;
  }
  std::error_code ignored;
  // Said when the marks are made, not again at every start.
  if (!fs::exists(root / "io-layer" / markerName, ignored))
    std::fprintf(stderr, "warning: spotlight: %s isn't clearly Halvo's own folder; marking only Halvo's subfolders\n", root.c_str());
  for (const auto& folder : {root / "video", root / "io-layer"}) warnOnFailure(folder, ensureMarker(folder));
}

std::map<fs::path, Outcome> ensureStandardLocations(const Locations& locations, const LogSink& failureLog) {
  std::map<fs::path, Outcome> outcomes;
  auto mark = [&](const fs::path& folder) {
    const auto outcome = ensureMarker(folder);
    if (const auto* failed = std::get_if<Failed>(&outcome); failed && failureLog) failureLog(warning(folder, failed->text));
    outcomes.emplace(folder, outcome);
  };
  mark(locations.supportDir);
  if (locations.dataRoot) mark(*locations.dataRoot);
  mark(locations.modelsDir);
  mark(locations.logsDir);
  return outcomes;
}

}  // namespace halvo::SpotlightExclusion
