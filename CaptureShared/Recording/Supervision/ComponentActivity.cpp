#include "CaptureShared/Recording/Supervision/ComponentActivity.h"

#include <system_error>

#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/Foundation/FileHandle.h"

namespace halvo::ComponentActivity {

namespace {

constexpr const char* displayPrefix = "display-";

std::optional<fs::path> newestSidecar(const fs::path& dataRoot) {
  std::optional<fs::path> newest;
  std::optional<std::int64_t> newestMs;
  std::error_code failed;
  for (fs::directory_iterator entry(DataPaths::videoDir(dataRoot), failed), end; !failed && entry != end; entry.increment(failed)) {
    if (!entry->path().filename().native().starts_with(displayPrefix)) continue;
    const auto sidecar = entry->path() / "frame_timestamps.csv";
    const auto writtenMs = modificationDate(sidecar);
    if (writtenMs && (!newestMs || *writtenMs > *newestMs)) newest = sidecar, newestMs = writtenMs;
  }
  return newest;
}

}  // namespace

std::optional<fs::path> evidencePath(ComponentHealth::Component component, const fs::path& dataRoot) {
  using ComponentHealth::Component;
  switch (component) {
    case Component::capture: return newestSidecar(dataRoot);
    case Component::classifier: return DataPaths::classifierCadence(dataRoot);
    case Component::coach: return DataPaths::ioLayerDir(dataRoot) / "coach-driver.pid";
  }
  return std::nullopt;
}

std::optional<std::int64_t> modificationDate(const fs::path& of) {
  try {
    return FileIdentity::of(of).mtimeNs / 1'000'000;
  } catch (const std::system_error&) {
    return std::nullopt;
  }
}

std::optional<std::int64_t> last(ComponentHealth::Component component, const fs::path& dataRoot) {
  const auto evidence = evidencePath(component, dataRoot);
  return evidence ? modificationDate(*evidence) : std::nullopt;
}

}  // namespace halvo::ComponentActivity
