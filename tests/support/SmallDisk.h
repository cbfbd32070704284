#pragma once

#include <string>

#include <sys/mount.h>

#include "tests/support/TemporaryFolder.h"

namespace halvo::test {

/// A disk of `bytes` in memory, a multiple of 4096, so that it can really be full. Mounting takes root; `isThere` says whether it could be made.
class SmallDisk {
 public:
  explicit SmallDisk(std::size_t bytes = 65'536)
      : bytes_(bytes), isThere_(::mount("tmpfs", folder_.path().c_str(), "tmpfs", 0, ("size=" + std::to_string(bytes)).c_str()) == 0) {}
  SmallDisk(const SmallDisk&) = delete;
  SmallDisk& operator=(const SmallDisk&) = delete;
  ~SmallDisk() {
    if (isThere_) ::umount2(path().c_str(), MNT_DETACH);
  }

  bool isThere() const { return isThere_; }
  const std::filesystem::path& path() const { return folder_.path(); }
  /// Takes all but `leave` bytes of it.
  void fill(std::size_t leave) const { std::ofstream(path() / "ballast", std::ios::binary) << std::string(bytes_ - leave, 'x'); }

 private:
  TemporaryFolder folder_;
  std::size_t bytes_;
  bool isThere_;
};

}  // namespace halvo::test
