#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>

#include "CaptureShared/Recording/Supervision/ComponentHealth.h"

/// When a component last worked: the time of the file that it writes on each of its cycles.
namespace halvo::ComponentActivity {

namespace fs = std::filesystem;

/// Of the recorder the newest sidecar of any display, of the classifier its cadence, of the coach its pid file. Absent: no such file yet.
std::optional<fs::path> evidencePath(ComponentHealth::Component component, const fs::path& dataRoot);
/// Milliseconds since the epoch; absent when there is no such file.
std::optional<std::int64_t> modificationDate(const fs::path& of);
std::optional<std::int64_t> last(ComponentHealth::Component component, const fs::path& dataRoot);

}  // namespace halvo::ComponentActivity
