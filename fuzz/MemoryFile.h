#pragma once

#include <cerrno>
#include <string>
#include <string_view>
#include <system_error>

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/mman.h>
#include <unistd.h>

#include "CaptureShared/Foundation/FileHandle.h"

namespace halvo {

/// A file in memory that a fuzz target fills anew for every input, which costs less than making one.
class MemoryFile {
 public:
  MemoryFile() : handle_(::memfd_create("fuzz", MFD_CLOEXEC)) {
    if (!handle_) throw std::system_error(errno, std::generic_category(), "memfd");
  }
  int fd() const { return handle_.fd(); }
  std::string path() const { return fmt::format("/proc/self/fd/{}", fd()); }
  void rewind() const { ::lseek(fd(), 0, SEEK_SET); }
  /// Keeps the first `kept` bytes, puts `bytes` behind them and goes back to the start.
  void fill(std::string_view bytes, std::size_t kept = 0) const {
    if (::ftruncate(fd(), static_cast<off_t>(kept)) != 0) throw std::system_error(errno, std::generic_category(), "memfd");
    ::lseek(fd(), static_cast<off_t>(kept), SEEK_SET);
    writeAll(fd(), bytes, "fuzz");
    rewind();
  }

 private:
  FileHandle handle_;
};

}  // namespace halvo
