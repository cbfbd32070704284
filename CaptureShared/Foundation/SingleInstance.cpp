#include "CaptureShared/Foundation/SingleInstance.h"

#include <cerrno>
#include <string>
#include <system_error>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace halvo {

namespace {

bool writeID(const FileHandle& file) {
  const auto text = std::to_string(::getpid()) + "\n";
  return ::pwrite(file.fd(), text.data(), text.size(), 0) == static_cast<ssize_t>(text.size());
}

}  // namespace

std::optional<SingleInstance> SingleInstance::acquire(const std::filesystem::path& pidFile) {
  FileHandle file(::open(pidFile.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  if (!file) throw std::system_error(errno, std::generic_category(), pidFile.string());
  if (::flock(file.fd(), LOCK_EX | LOCK_NB) != 0) {
    if (errno == EWOULDBLOCK) return std::nullopt;
    throw std::system_error(errno, std::generic_category(), pidFile.string());
  }
  if (::ftruncate(file.fd(), 0) != 0 || !writeID(file))
    throw std::system_error(errno, std::generic_category(), pidFile.string());
  return SingleInstance(std::move(file));
}

void SingleInstance::renew() const { writeID(file_); }

bool SingleInstance::isOf(const std::filesystem::path& pidFile) const {
  try {
    const auto held = FileIdentity::of(file_), there = FileIdentity::of(pidFile);
    return held.device == there.device && held.inode == there.inode;
  } catch (const std::system_error&) {
    return false;
  }
}

}  // namespace halvo
