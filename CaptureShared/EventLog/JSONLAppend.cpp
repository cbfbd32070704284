#include "CaptureShared/EventLog/JSONLAppend.h"

#include <cerrno>

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo {

JSONLAppendError JSONLAppendError::openFailed(int code) {
  return {Kind::openFailed, code, fmt::format("could not open file for append: errno {}", code)};
}
JSONLAppendError JSONLAppendError::shortWrite(std::size_t expected, std::int64_t actual) {
  return {Kind::shortWrite, 0, fmt::format("short write: expected {} bytes, wrote {}", expected, actual)};
}
JSONLAppendError JSONLAppendError::encodingFailed() { return {Kind::encodingFailed, 0, "could not encode row as JSON"}; }

namespace JSONLAppend {

namespace {

/// Whether a missing folder is ours to make: never the root itself, and nothing under a root that is not there, for that may be the place of a
/// volume that is not mounted.
bool mayMake(const std::filesystem::path& folder) {
  auto plain = [](const std::filesystem::path& path) {
    const auto normal = path.lexically_normal();
    return normal.has_filename() ? normal : normal.parent_path();
  };
  const auto wanted = plain(folder), root = plain(DataPaths::dataRoot());
  if (wanted == root || wanted == plain(DataPaths::unconfiguredRoot())) return false;
  return wanted.parent_path() != root || DataPaths::isDataRootAvailable();
}

FileHandle openForAppend(const std::filesystem::path& file) {
  // Readable too, for the look at the last byte.
  constexpr int flags = O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC;
  int fd = ::open(file.c_str(), flags, 0600);
  const int failed = errno;
  if (fd < 0 && failed == ENOENT && mayMake(file.parent_path())) {
    // One level only. Its failure is not looked at: another writer may have been quicker, and for the rest the open has the reason.
    ::mkdir(file.parent_path().c_str(), 0700);
    fd = ::open(file.c_str(), flags, 0600);
    if (fd < 0) throw JSONLAppendError::openFailed(errno);
  }
  if (fd < 0) throw JSONLAppendError::openFailed(failed);
  return FileHandle(fd);
}

/// Whether the byte that ends at `offset` is a newline; the start of a file is as good as one, and so is what can't be looked at.
bool lineEndsAt(int fd, off_t offset) {
  char last = '\n';
  return offset <= 0 || ::pread(fd, &last, 1, offset - 1) != 1 || last == '\n';
}

/// One write of the whole line. Throws `shortWrite`.
void writeLine(int fd, std::string_view line) {
  ssize_t written = 0;
  do {
    written = ::write(fd, line.data(), line.size());
  } while (written < 0 && errno == EINTR);
  if (written == static_cast<ssize_t>(line.size())) return;
  // Part of a row stands in the file: end it, so that the next row is not glued to it.
  if (written > 0) [[maybe_unused]]
    const auto ended = ::write(fd, "\n", 1);
  throw JSONLAppendError::shortWrite(line.size(), written < 0 ? 0 : written);
}

}  // namespace

void append(std::string_view row, const std::filesystem::path& file) {
  if (row.find('\n') != std::string_view::npos || !Text::isValidUTF8(row)) throw JSONLAppendError::encodingFailed();
  const auto handle = openForAppend(file);
  const int fd = handle.fd();
  std::string line;
  line.reserve(row.size() + 2);
  line += '\n';
  line += row;
  line += '\n';
  // The front newline is for a stump that a killed writer left; a row behind whole lines goes without it.
  if (!lineEndsAt(fd, ::lseek(fd, 0, SEEK_END))) return writeLine(fd, line);
  const auto plain = std::string_view(line).substr(1);
  writeLine(fd, plain);
  // Another writer may have been killed inside its write while ours waited for its turn. Then this row stands glued to that stump, where no
  // reader can make it out: it is written once more, on a line of its own.
  if (!lineEndsAt(fd, ::lseek(fd, 0, SEEK_CUR) - static_cast<off_t>(plain.size()))) writeLine(fd, line);
}

void appendValue(const JSONValue& row, const std::filesystem::path& file) {
  std::string text;
  try {
    text = row.dump();
  } catch (const JSONEncodingError&) {
    throw JSONLAppendError::encodingFailed();
  }
  append(text, file);
}

}  // namespace JSONLAppend

}  // namespace halvo
