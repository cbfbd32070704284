#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <sys/types.h>

#include "CaptureShared/Foundation/Environment.h"
#include "CaptureShared/Foundation/Spawn.h"

namespace halvo::test {

/// A program that ends with the test that started it.
class ChildProcess {
 public:
  ChildProcess() = default;
  /// Its standard error, and its standard output unless a descriptor takes that place, go to nowhere.
  ChildProcess(const std::string& program, const std::vector<std::string>& arguments, const Environment& environment,
               std::vector<Spawn::Descriptor> descriptors = {});
  /// Both its standard streams go to the end of a file.
  static ChildProcess logged(const std::string& program, const std::vector<std::string>& arguments, const Environment& environment,
                             const std::filesystem::path& log);
  /// Waits for its first line, which `line` then is.
  static ChildProcess greeting(const std::string& program, const std::vector<std::string>& arguments, const Environment& environment,
                               std::string& line);
  ChildProcess(ChildProcess&& other) noexcept : pid_(std::exchange(other.pid_, 0)) {}
  ChildProcess& operator=(ChildProcess&& other) noexcept;
  ~ChildProcess() { end(); }

  pid_t pid() const { return pid_; }
  void signal(int number) const;
  /// Its exit code, or 128 + signal, if it ends within `seconds`.
  std::optional<int> wait(double seconds);
  /// Asks it to end, and makes it after two seconds.
  void end();

 private:
  pid_t pid_ = 0;
};

/// A dead orphan, which may still wait for whoever adopted it, does not count.
bool isRunning(pid_t pid);

/// What a real program is started with: a home, a data root, no bus, and nothing of whoever runs the tests; what `all` says goes first.
inline Environment programEnvironment(const std::filesystem::path& home, const std::filesystem::path& dataRoot, Environment all = {}) {
  all.insert({{"HOME", home}, {"PATH", "/usr/bin:/bin"}, {"TZ", "America/New_York"}, {"AMBITCAP_DATA_ROOT", dataRoot},
              {"DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent"}, {"DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent"}});
  return all;
}

}  // namespace halvo::test
