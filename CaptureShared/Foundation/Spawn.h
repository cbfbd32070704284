#pragma once

#include <chrono>
#include <csignal>
#include <filesystem>
#include <map>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>

#include "CaptureShared/Foundation/Environment.h"
#include "CaptureShared/Foundation/FileHandle.h"

/// Child processes: their own process group, no inherited descriptors but the ones given, SIGPIPE as usual.
namespace halvo::Spawn {

/// A descriptor of ours and the number it has in the child.
struct Descriptor {
  int ours = -1;
  int childs = -1;
};

/// Starts a program by its path (looked up in PATH when it has no slash) and answers its process id; absent environment: inherited. With a
/// `deathSignal` the child gets that signal when the thread that started it ends, however it ends. Throws `std::system_error` when it
/// cannot be started.
pid_t run(const std::string& program, const std::vector<std::string>& arguments, const std::optional<Environment>& environment,
          const std::vector<Descriptor>& descriptors, std::optional<int> deathSignal = {});

/// Waits for the child's end: its exit code, or 128 + signal.
int wait(pid_t pid);
/// The same without waiting: absent while it runs, -1 when it is no child of ours. What is left of its process group is killed.
std::optional<int> reap(pid_t pid);

/// A pipe that no child inherits unless an end is given to it. `make` throws `std::system_error`.
struct Pipe {
  FileHandle read, write;
  static Pipe make();
};

/// While it lives, this thread's write into a pipe that nobody reads answers EPIPE instead of ending the process.
class BrokenPipeGuard {
 public:
  BrokenPipeGuard();
  BrokenPipeGuard(const BrokenPipeGuard&) = delete;
  BrokenPipeGuard& operator=(const BrokenPipeGuard&) = delete;
  ~BrokenPipeGuard();

 private:
  sigset_t before_;
};

struct Output {
  std::string standardOutput;
  int exitStatus = -1;  ///< the exit code, or 128 + signal
};
/// Runs a program with `input` on its standard input and gathers its standard output (at most 16 MiB). When `seconds` pass or the token
/// stops, the whole process group is killed and the answer is absent. Throws `std::system_error` when it cannot be started.
std::optional<Output> capture(const std::string& program, const std::vector<std::string>& arguments, std::string_view input, double seconds,
                              const std::stop_token& stop = {});

}  // namespace halvo::Spawn
