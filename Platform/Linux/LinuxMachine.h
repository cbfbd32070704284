#pragma once

#include <filesystem>

#include "Platform/Machine/Machine.h"

namespace halvo {

/// This computer by its /proc and /etc. `root` stands before both, for a test's own tree.
class LinuxMachine : public Machine {
 public:
  explicit LinuxMachine(std::filesystem::path root = "/") : root_(std::move(root)) {}

  /// The `btime` of /proc/stat.
  std::optional<std::int64_t> bootTimeMs() const override;
  /// /etc/machine-id, trimmed; absent when it is missing or blank.
  std::optional<std::string> identity() const override;
  std::optional<std::uint64_t> freeBytes(const std::filesystem::path& path) const override;
  /// The `MemTotal` of /proc/meminfo, rounded up.
  std::optional<std::uint64_t> physicalMemoryBytes() const override;

 private:
  std::filesystem::path root_;
};

}  // namespace halvo
