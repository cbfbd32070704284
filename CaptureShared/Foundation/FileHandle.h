#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <string>
#include <string_view>
#include <utility>

namespace halvo {

/// An open file descriptor: closed on every path, never inherited by a child.
class FileHandle {
 public:
  FileHandle() = default;
  explicit FileHandle(int fd) : fd_(fd) {}
  FileHandle(FileHandle&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  FileHandle& operator=(FileHandle&& other) noexcept;
  ~FileHandle() { reset(); }

  /// Throws `std::system_error` naming the file; `errno` of the open is its code.
  static FileHandle openForRead(const std::filesystem::path& file);

  int fd() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }
  void reset();
  int release() { return std::exchange(fd_, -1); }

  /// Up to `size` bytes from byte `offset`; fewer only at the end of the file. Throws `std::system_error`.
  std::string readAt(std::uint64_t offset, std::size_t size) const;
  /// The same into memory of the caller's, for those who read piece after piece: the bytes that came.
  std::size_t readInto(std::span<char> room, std::uint64_t offset) const;

 private:
  int fd_ = -1;
};

/// What `stat` says of a file, to the nanosecond.
struct FileIdentity {
  std::uint64_t device = 0, inode = 0;
  std::int64_t size = 0;
  std::int64_t mtimeNs = 0;
  /// Throws `std::system_error`; a missing file is ENOENT.
  static FileIdentity of(const std::filesystem::path& file);
  /// The same of an open file, whatever has its name by now.
  static FileIdentity of(const FileHandle& file);
  bool operator==(const FileIdentity&) const = default;
};

/// Every byte, whatever a single write takes; `file` names it in the error. Throws `std::system_error`, and then a part may be written.
void writeAll(int fd, std::string_view bytes, const std::filesystem::path& file);

/// The whole file. Throws `std::system_error`; a missing file is ENOENT.
std::string readFile(const std::filesystem::path& file);

/// Replaces a file by one rename: readers see the old bytes or the new, never a part. The new file is 0600 from its first byte and on
/// the disk before it gets its name. Throws `std::system_error`, and then the old file is untouched and no scrap is left.
void writeFileAtomically(const std::filesystem::path& file, std::string_view bytes);

/// Makes one folder, 0700, when it is missing. Its parent must exist: a missing parent may be a volume that is not mounted.
/// Throws `std::system_error`.
void makePrivateFolder(const std::filesystem::path& folder);

/// "no such file or directory" and the like, for log lines.
std::string errnoText(int code);

}  // namespace halvo
