#include "CaptureShared/Foundation/FileHandle.h"

#include <cerrno>
#include <cstring>
#include <system_error>

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

namespace halvo {

namespace {

[[noreturn]] void fail(const std::filesystem::path& file, int code = errno) {
  throw std::system_error(code, std::generic_category(), file.string());
}

}  // namespace

void writeAll(int fd, std::string_view bytes, const std::filesystem::path& file) {
  while (!bytes.empty()) {
    const auto written = ::write(fd, bytes.data(), bytes.size());
    if (written < 0) {
      if (errno == EINTR) continue;
      fail(file);
    }
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
}

FileHandle& FileHandle::operator=(FileHandle&& other) noexcept {
  if (this != &other) {
    reset();
    fd_ = std::exchange(other.fd_, -1);
  }
  return *this;
}

void FileHandle::reset() {
  if (fd_ >= 0) ::close(std::exchange(fd_, -1));
}

FileHandle FileHandle::openForRead(const std::filesystem::path& file) {
  const int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) fail(file);
  return FileHandle(fd);
}

std::string FileHandle::readAt(std::uint64_t offset, std::size_t size) const {
  std::string bytes(size, '\0');
  bytes.resize(readInto(bytes, offset));
  return bytes;
}

std::size_t FileHandle::readInto(std::span<char> room, std::uint64_t offset) const {
  std::size_t filled = 0;
  while (filled < room.size()) {
    const auto got = ::pread(fd_, room.data() + filled, room.size() - filled, static_cast<off_t>(offset + filled));
    if (got < 0) {
      if (errno == EINTR) continue;
      throw std::system_error(errno, std::generic_category(), "read");
    }
    if (got == 0) break;
    filled += static_cast<std::size_t>(got);
  }
  return filled;
}

namespace {

FileIdentity identity(const struct stat& status) {
  return {.device = static_cast<std::uint64_t>(status.st_dev),
          .inode = static_cast<std::uint64_t>(status.st_ino),
          .size = static_cast<std::int64_t>(status.st_size),
          .mtimeNs = static_cast<std::int64_t>(status.st_mtim.tv_sec) * 1'000'000'000 + status.st_mtim.tv_nsec};
}

}  // namespace

FileIdentity FileIdentity::of(const std::filesystem::path& file) {
  struct stat status {};
  if (::stat(file.c_str(), &status) != 0) fail(file);
  return identity(status);
}

FileIdentity FileIdentity::of(const FileHandle& file) {
  struct stat status {};
  if (::fstat(file.fd(), &status) != 0) throw std::system_error(errno, std::generic_category(), "fstat");
  return identity(status);
}

std::string readFile(const std::filesystem::path& file) {
  const auto handle = FileHandle::openForRead(file);
  struct stat status {};
  if (::fstat(handle.fd(), &status) != 0) fail(file);
  if (S_ISDIR(status.st_mode)) fail(file, EISDIR);
  // A file may grow, or be one of those that report no size: read on until the end says so.
  std::string bytes;
  for (;;) {
    const auto piece = handle.readAt(bytes.size(), std::max<std::size_t>(static_cast<std::size_t>(status.st_size) + 1 - std::min<std::size_t>(bytes.size(), static_cast<std::size_t>(status.st_size)), 4096));
    if (piece.empty()) return bytes;
    bytes += piece;
  }
}

void writeFileAtomically(const std::filesystem::path& file, std::string_view bytes) {
  std::string scratch = fmt::format("{}.{}.XXXXXX", file.string(), ::getpid());
  const int fd = ::mkostemp(scratch.data(), O_CLOEXEC);  // 0600 from the first byte
  if (fd < 0) fail(file);
  FileHandle handle(fd);
  try {
    writeAll(fd, bytes, file);
    if (::fdatasync(fd) != 0) fail(file);
    if (::close(handle.release()) != 0) fail(file);
    if (::rename(scratch.c_str(), file.c_str()) != 0) fail(file);
  } catch (...) {
    ::unlink(scratch.c_str());
    throw;
  }
}

void makePrivateFolder(const std::filesystem::path& folder) {
  if (::mkdir(folder.c_str(), 0700) == 0 || errno == EEXIST) return;
  fail(folder);
}

std::string errnoText(int code) { return std::generic_category().message(code); }

}  // namespace halvo
