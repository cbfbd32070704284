#include "CaptureShared/Recording/Retention/RetentionFileOps.h"

#include <cerrno>
#include <memory>
#include <system_error>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "CaptureShared/Foundation/FileHandle.h"

namespace halvo::VideoRetentionSweep {

namespace {

[[noreturn]] void fail(int code, const fs::path& path) { throw std::system_error(code, std::generic_category(), path.string()); }

FileHandle openFolder(const fs::path& folder) {
  FileHandle handle(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!handle) fail(errno, folder);
  return handle;
}

std::vector<std::string> namesIn(const fs::path& folder) {
  auto handle = openFolder(folder);
  const std::unique_ptr<DIR, int (*)(DIR*)> stream(::fdopendir(handle.fd()), ::closedir);
  if (!stream) fail(errno, folder);
  handle.release();
  std::vector<std::string> names;
  for (errno = 0; const auto* entry = ::readdir(stream.get()); errno = 0)
    if (const std::string name = entry->d_name; name != "." && name != "..") names.push_back(name);
  if (errno != 0) fail(errno, folder);
  return names;
}

/// What a regular file's name leads to without a link; throws for anything else.
struct stat regularFile(const FileHandle& folder, const fs::path& file) {
  struct stat facts {};
  if (::fstatat(folder.fd(), file.filename().c_str(), &facts, AT_SYMLINK_NOFOLLOW) != 0) fail(errno, file);
  if (!S_ISREG(facts.st_mode)) fail(EINVAL, file);
  return facts;
}

std::optional<struct stat> factsOf(const fs::path& file) {
  try {
    return regularFile(openFolder(file.parent_path()), file);
  } catch (const std::system_error&) {
    return std::nullopt;
  }
}

}  // namespace

FileOps FileOps::real() {
  return {.listDirectory = namesIn,
          .sizeOfFile =
              [](const fs::path& file) {
                const auto facts = factsOf(file);
                return facts ? static_cast<std::int64_t>(facts->st_size) : std::int64_t{0};
              },
          .removeFile =
              [](const fs::path& file) {
                const auto folder = openFolder(file.parent_path());
                regularFile(folder, file);
                if (::unlinkat(folder.fd(), file.filename().c_str(), 0) != 0) fail(errno, file);
              },
          .lastWriteMs =
              [](const fs::path& file) {
                const auto facts = factsOf(file);
                return facts ? std::optional<std::int64_t>(facts->st_mtim.tv_sec * 1000LL + facts->st_mtim.tv_nsec / 1'000'000) : std::nullopt;
              }};
}

}  // namespace halvo::VideoRetentionSweep
