#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace halvo {

/// Facts of this computer. Never throws; safe from any thread.
class Machine {
 public:
  virtual ~Machine() = default;
  /// When it was started, in milliseconds since the epoch. Moves when the clock is set.
  virtual std::optional<std::int64_t> bootTimeMs() const = 0;
  /// A text that is this installation's alone and survives a restart.
  virtual std::optional<std::string> identity() const = 0;
  /// Bytes that this account may still write on the volume that holds `path`; absent when the path doesn't exist.
  virtual std::optional<std::uint64_t> freeBytes(const std::filesystem::path& path) const = 0;
  /// The memory built in, to the whole GiB: what the system keeps for itself counts in.
  virtual std::optional<std::uint64_t> physicalMemoryBytes() const = 0;
};

}  // namespace halvo
