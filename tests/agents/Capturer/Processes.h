#pragma once

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <sys/types.h>

namespace halvo::test {

/// The running children of that name.
inline std::vector<pid_t> childrenOf(pid_t pid, const std::string& program) {
  std::vector<pid_t> found;
  std::error_code gone;
  for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task", gone)) {
    std::ifstream list(task.path() / "children");
    for (pid_t child = 0; list >> child;) {
      std::string name;
      std::getline(std::ifstream("/proc/" + std::to_string(child) + "/comm"), name);
      if (name == program) found.push_back(child);
    }
  }
  return found;
}

}  // namespace halvo::test
