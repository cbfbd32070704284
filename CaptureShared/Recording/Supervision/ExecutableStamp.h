#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace halvo {

/// What tells one version of a program's file from the next.
struct ExecutableStamp {
  std::uint64_t inode = 0;
  std::int64_t modifiedNanoseconds = 0;  ///< since the epoch
  std::int64_t size = 0;                 ///< bytes

  bool operator==(const ExecutableStamp&) const = default;

  std::string description() const;
  /// Of the file that has this name now; absent when there is none, as in the middle of an update.
  static std::optional<ExecutableStamp> of(const std::filesystem::path& executable);
};

}  // namespace halvo
