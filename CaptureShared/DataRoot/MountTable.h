#pragma once

#include <filesystem>

/// What is mounted, and what should be.
namespace halvo::MountTable {

/// True when the table `fstab` names `path` or one of its ancestors (not "/") as a mount point and `mounts` does not show it mounted: an
/// ordinary folder on the wrong disk stands where the volume should be. Unreadable tables say false.
bool isUnmountedMountPoint(const std::filesystem::path& path, const std::filesystem::path& fstab = "/etc/fstab",
                           const std::filesystem::path& mounts = "/proc/self/mounts");

/// True when `folder` lies on another device than its parent, or is "/".
bool isTopOfVolume(const std::filesystem::path& folder);

}  // namespace halvo::MountTable
