#pragma once

#include <string>

#include <sys/mount.h>

#include "tests/support/TemporaryFolder.h"

namespace halvo::test {

/// A disk of 64 KiB in memory, so that it can really be full. Mounting takes root; `isThere` says whether it could be made.
class SmallDisk {
 public:
  SmallDisk() : isThere_(::mount("tmpfs", folder_.path().c_str(), "tmpfs", 0, "size=64k") == 0) {}
  SmallDisk(const SmallDisk&) = delete;
  SmallDisk& operator=(const SmallDisk&) = delete;
  ~SmallDisk() {
    if (isThere_) ::umount2(path().c_str(), MNT_DETACH);
  }

  bool isThere() const { return isThere_; }
  const std::filesystem::path& path() const { return folder_.path(); }
  /// Takes all but `leave` bytes of the 64 KiB.
  void fill(std::size_t leave) const { std::ofstream(path() / "ballast", std::ios::binary) << std::string(65'536 - leave, 'x'); }

 private:
  TemporaryFolder folder_;
  bool isThere_;
};

}  // namespace halvo::test
