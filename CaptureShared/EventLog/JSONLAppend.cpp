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

FileHandle openForAppend(const std::filesystem::path& file) {
  // Readable too, for the look at the last byte.
  constexpr int flags = O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC;
  int fd = ::open(file.c_str(), flags, 0600);
  if (fd < 0 && errno == ENOENT) {
    // One level only, and never the root itself: that may be the place of a volume that is not mounted.
    const auto folder = file.parent_path();
    if (folder != DataPaths::dataRoot() && folder != DataPaths::unconfiguredRoot() && ::mkdir(folder.c_str(), 0700) == 0)
      fd = ::open(file.c_str(), flags, 0600);
    else
      errno = ENOENT;
  }
  if (fd < 0) throw JSONLAppendError::openFailed(errno);
  return FileHandle(fd);
}

bool endsInStump(int fd) {
  const auto end = ::lseek(fd, 0, SEEK_END);
  char last = '\n';
  return end > 0 && ::pread(fd, &last, 1, end - 1) == 1 && last != '\n';
}

}  // namespace

void append(std::string_view row, const std::filesystem::path& file) {
  if (row.find('\n') != std::string_view::npos || !Text::isValidUTF8(row)) throw JSONLAppendError::encodingFailed();
  const auto handle = openForAppend(file);
  std::string line;
  line.reserve(row.size() + 2);
  if (endsInStump(handle.fd())) line += '\n';
  line += row;
  line += '\n';
  ssize_t written = 0;
  do {
    written = ::write(handle.fd(), line.data(), line.size());
  } while (written < 0 && errno == EINTR);
  if (written == static_cast<ssize_t>(line.size())) return;
  // Part of a row stands in the file: end it, so that the next row is not glued to it.
  if (written > 0) [[maybe_unused]]
    const auto ended = ::write(handle.fd(), "\n", 1);
  throw JSONLAppendError::shortWrite(line.size(), written < 0 ? 0 : written);
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
