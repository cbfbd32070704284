#include "CaptureShared/DataRoot/AgentLogging.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <system_error>
#include <thread>

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include "CaptureShared/DataRoot/AgentConfig.h"
#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/DataRoot/SpotlightExclusion.h"
#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/Environment.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/UserFolders.h"

namespace halvo::AgentLogging {

namespace {

FileHandle openForAppend(const fs::path& file) { return FileHandle(::open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600)); }

void note(const fs::path& log, const std::string& text) {
  const auto handle = openForAppend(log);
  const auto line = "[AgentLogging] " + text + "\n";
  // A note that can't be written has no other place to go.
  if (handle && ::write(handle.fd(), line.data(), line.size()) < 0) return;
}

/// Settings that are not in force are said at the start: a switch that someone set there does nothing.
void tellOfMalformedConfig() {
  if (const auto config = AgentConfig::load(); config.isMalformed())
    std::fprintf(stderr, "%s: %s — none of its settings are in force\n", DataPaths::configURL().c_str(), config.parseError->c_str());
}

/// The rotation checks, one a log. Ended with the process: a check in progress is a rename at most.
class RotationTimers {
 public:
  void start(const fs::path& log, double intervalSec, std::function<void()> check) {
    const std::lock_guard hold(mutex_);
    if (timers_.contains(log)) return;
    // The thread inherits this: a SIGTERM that it took would end the process without its loop's goodbye.
    sigset_t all, before;
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before);
    timers_.emplace(log, std::jthread([intervalSec, check = std::move(check)](const std::stop_token& stop) {
                      const auto clock = Clock::system();
                      for (clock.wait(intervalSec, stop); !stop.stop_requested(); clock.wait(intervalSec, stop)) check();
                    }));
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
  }

 private:
  std::mutex mutex_;
  std::map<fs::path, std::jthread> timers_;
};

RotationTimers& rotationTimers() {
  static RotationTimers timers;
  return timers;
}

}  // namespace

fs::path logURL(const std::string& subdirectory, const std::string& name) {
  return UserFolders::logsRoot(processEnvironment()) / subdirectory / (name + ".log");
}

fs::path rotatedURL(const fs::path& log) { return log.string() + ".1"; }

bool isLaunchdManaged() {
  if (::getppid() == 1) return true;
  const char* pid = std::getenv("SYSTEMD_EXEC_PID");
  return pid && std::to_string(::getpid()) == pid;
}

std::optional<fs::path> redirectStandardStreams(const std::string& subdirectory, const std::string& name) {
  const auto log = logURL(subdirectory, name);
  std::error_code error;
  fs::create_directories(log.parent_path(), error);
  const auto handle = openForAppend(log);
  if (!handle) return std::nullopt;
  std::fflush(stdout);
  if (::dup2(handle.fd(), STDOUT_FILENO) < 0 || ::dup2(handle.fd(), STDERR_FILENO) < 0) return std::nullopt;
  // With a buffer of its own: a stream that has been written to keeps its old mode in the old one.
  static char lines[BUFSIZ];
  std::setvbuf(stdout, lines, _IOLBF, sizeof lines);
  std::setvbuf(stderr, nullptr, _IONBF, 0);
  SpotlightExclusion::ensureMarker(log.parent_path());
  return log;
}

bool rotateIfNeeded(const std::string& subdirectory, const std::string& name, std::int64_t maxBytes) {
  const auto log = logURL(subdirectory, name), previous = rotatedURL(log);
  std::int64_t size = 0;
  try {
    size = FileIdentity::of(log).size;
  } catch (const std::system_error&) {
    return false;
  }
  if (size < maxBytes) return false;
  if (::rename(log.c_str(), previous.c_str()) != 0) {
    note(log, fmt::format("could not rotate the log: {}", errnoText(errno)));
    return false;
  }
  note(log, fmt::format("log rotated at {} bytes (cap {}) — previous generation is {}. A child process that inherited this log before the "
                        "rotation keeps writing to that older file until it restarts.",
                        size, maxBytes, previous.filename().string()));
  return true;
}

std::optional<fs::path> bootstrap(const std::string& subdirectory, const std::string& name, std::optional<std::int64_t> maxBytes,
                                  double rotationCheckIntervalSec) {
  AgentConfig::bootstrapProcessEnvironment();
  std::optional<fs::path> log;
  if (isLaunchdManaged()) {
    if (maxBytes) rotateIfNeeded(subdirectory, name, *maxBytes);
    log = redirectStandardStreams(subdirectory, name);
    if (log && maxBytes)
      rotationTimers().start(*log, rotationCheckIntervalSec, [subdirectory, name, cap = *maxBytes] {
        if (rotateIfNeeded(subdirectory, name, cap)) redirectStandardStreams(subdirectory, name);
      });
  }
  tellOfMalformedConfig();
  return log;
}

}  // namespace halvo::AgentLogging
