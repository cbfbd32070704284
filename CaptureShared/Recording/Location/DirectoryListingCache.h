#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "CaptureShared/Foundation/LockedValue.h"

namespace halvo::FrameLocator {

/// "2026-11-16T03" of "2026-11-16T03.mkv" and of "2026-11-16T03.part2.mkv": the name without ".mkv" and whatever begins with ".part".
/// Absent for a name that doesn't end in ".mkv" or has nothing before that.
std::optional<std::string_view> hourStem(std::string_view filename);

/// The hour files of folders, so that a clip's many locates don't list a folder of thousands of files each time. Safe from any thread; two
/// threads may build the same listing, and the later one stays.
class DirectoryListingCache {
 public:
  struct Entry {
    std::string hourPrefix;
    std::filesystem::path url;
    std::int64_t birthMs = 0;               ///< when the file was made, milliseconds since the epoch
    std::optional<std::int64_t> size = {};  ///< bytes
    bool operator==(const Entry&) const = default;
  };
  using Listing = std::shared_ptr<const std::vector<Entry>>;

  struct Ops {
    /// Regular files only; one whose birth the file system doesn't tell is left out. Empty when the folder can't be listed.
    std::function<std::vector<Entry>(const std::filesystem::path& folder)> list;
    std::function<std::optional<std::int64_t>(const std::filesystem::path& folder)> modifiedAtNs;
    std::function<std::int64_t()> nowMs;
    static Ops real();
  };

  explicit DirectoryListingCache(Ops ops = Ops::real()) : ops_(std::move(ops)) {}
  /// The process's own.
  static DirectoryListingCache& shared();

  /// By hour, then by name; never null. At most 30 seconds old, and as new as the folder where its modification time can be told.
  Listing entries(const std::filesystem::path& folder);

 private:
  struct Snapshot {
    Listing entries;
    std::optional<std::int64_t> dirModifiedAtNs = {};
    std::int64_t builtAtMs = 0;
  };
  Ops ops_;
  LockedValue<std::map<std::filesystem::path, Snapshot>> snapshots_;
};

}  // namespace halvo::FrameLocator
