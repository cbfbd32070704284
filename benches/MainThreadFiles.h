#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <string>

/// What a program's main thread asks of the file system.
namespace halvo::MainThreadFiles {

struct Use {
  int calls = 0;
  double ms = 0;  ///< in those calls, by the clock: what the tracing itself takes between them is not in it
};

/// Runs a program under `ptrace` and times each call of its main thread that names a file or has one open, summed over each file. `drive`
/// uses the program meanwhile, on a thread of its own; when it returns the program is sent SIGTERM. Throws `std::system_error` when the
/// program can't be traced.
std::map<std::string, Use> trace(const std::filesystem::path& program, const std::function<void()>& drive);

}  // namespace halvo::MainThreadFiles
