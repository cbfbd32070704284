#include "CaptureShared/DataRoot/MountTable.h"

#include <cstdio>
#include <memory>
#include <set>
#include <string>

#include <mntent.h>
#include <sys/stat.h>

namespace halvo::MountTable {

namespace {

std::set<std::string> mountPoints(const std::filesystem::path& table) {
  std::set<std::string> points;
  const std::unique_ptr<FILE, int (*)(FILE*)> file(::setmntent(table.c_str(), "re"), ::endmntent);
  if (!file) return points;
  mntent entry{};
  char buffer[4096];
  while (::getmntent_r(file.get(), &entry, buffer, sizeof buffer)) points.insert(entry.mnt_dir);
  return points;
}

}  // namespace

bool isUnmountedMountPoint(const std::filesystem::path& path, const std::filesystem::path& fstab, const std::filesystem::path& mounts) {
  const auto wanted = mountPoints(fstab);
  if (wanted.empty()) return false;
  // As it is written and with its links resolved: a link in the home folder may lead to the volume.
  std::error_code error;
  auto real = std::filesystem::weakly_canonical(path, error);
  if (error) real.clear();
  std::set<std::string> mounted;
  for (const auto& form : {path.lexically_normal(), real})
    for (auto here = form; here.has_relative_path(); here = here.parent_path()) {
      if (!wanted.contains(here.string())) continue;
      if (mounted.empty()) mounted = mountPoints(mounts);
      if (!mounted.empty() && !mounted.contains(here.string())) return true;
    }
  return false;
}

bool isTopOfVolume(const std::filesystem::path& folder) {
  if (!folder.has_relative_path()) return true;
  struct stat self {}, parent {};
  // The folder's own "..", not what stands before the last slash: that may be a link from elsewhere, or nothing.
  if (::stat(folder.c_str(), &self) != 0 || ::stat((folder / "..").c_str(), &parent) != 0) return false;
  return self.st_dev != parent.st_dev;
}

}  // namespace halvo::MountTable
