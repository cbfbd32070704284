#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

/// An agent's standard streams: left alone in a terminal, sent to a rotating log under "Library/Logs" when the service manager started it.
namespace halvo::AgentLogging {

namespace fs = std::filesystem;

inline constexpr std::int64_t standardMaxBytes = 5 * 1024 * 1024;  ///< what our agents pass
inline constexpr double standardRotationCheckSec = 300;

fs::path logURL(const std::string& subdirectory, const std::string& name);
/// The log's name with ".1" behind it: the one older generation that is kept.
fs::path rotatedURL(const fs::path& log);

/// True when the service manager started this process: its parent is process 1, or SYSTEMD_EXEC_PID names this very process.
bool isLaunchdManaged();

/// Reopens both streams in append mode on the log. Absent, and the streams as they were, when any step fails.
std::optional<fs::path> redirectStandardStreams(const std::string& subdirectory, const std::string& name);

/// Moves a log of at least `maxBytes` to its older generation and notes that in the new one. Whether it did.
bool rotateIfNeeded(const std::string& subdirectory, const std::string& name, std::int64_t maxBytes);

/// Brings the environment up from `config.json`, then redirects when managed (with `maxBytes`: rotates first, and checks again every
/// `rotationCheckIntervalSec` from a thread of its own). The log's path, or absent when the streams were left alone.
std::optional<fs::path> bootstrap(const std::string& subdirectory, const std::string& name, std::optional<std::int64_t> maxBytes = standardMaxBytes,
                                  double rotationCheckIntervalSec = standardRotationCheckSec);

}  // namespace halvo::AgentLogging
