#include "CaptureShared/Labels/Clips/ClipFolder.h"

#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "CaptureShared/Foundation/UUID.h"
#include "CaptureShared/Foundation/UserFolders.h"

namespace halvo {

namespace {

namespace fs = std::filesystem;
constexpr int maxAttempts = 5;

FileHandle opened(const fs::path& folder) { return FileHandle(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)); }

void removeAbandoned(const fs::path& folder) {
  std::error_code ignored;
  for (auto entry = fs::directory_iterator(folder, ignored); entry != fs::directory_iterator(); entry.increment(ignored)) {
    const auto handle = opened(entry->path());
    if (handle && ::flock(handle.fd(), LOCK_EX | LOCK_NB) == 0) fs::remove_all(entry->path(), ignored);
  }
}

}  // namespace

ClipFolder::ClipFolder(const Environment& environment) {
  const auto parent = UserFolders::systemTemp(environment) / "halvo-review-clips";
  makePrivateFolder(parent);
  removeAbandoned(parent);
  for (int attempt = 0; !lock_ && attempt < maxAttempts; ++attempt) {
    path_ = parent / newUUID();
    makePrivateFolder(path_);
    lock_ = opened(path_);
    struct stat status {};
    // Between its making and its lock another process may have taken it for abandoned.
    if (lock_ && (::flock(lock_.fd(), LOCK_EX) != 0 || ::fstat(lock_.fd(), &status) != 0 || status.st_nlink == 0)) lock_.reset();
  }
  if (!lock_) throw std::system_error(errno, std::generic_category(), path_.string());
}

ClipFolder::~ClipFolder() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

}  // namespace halvo
