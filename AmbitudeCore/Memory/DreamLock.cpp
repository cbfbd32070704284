#include "AmbitudeCore/Memory/DreamLock.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>

#include <cerrno>
#include <system_error>

#include "AmbitudeCore/Memory/MemoryStore.h"

namespace halvo::DreamLock {

Outcome acquire(const std::filesystem::path& dataRoot) {
  try {
    makePrivateFolder(MemoryStore::folder(dataRoot));
  } catch (const std::system_error& error) {
    return Unavailable{"could not create memory/ directory: " + error.code().message()};
  }
  FileHandle file(::open((MemoryStore::folder(dataRoot) / ".dream.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644));
  if (!file) return Unavailable{fmt::format("could not open lock file (errno {})", errno)};
  int failed = 0;
  do {
    failed = ::flock(file.fd(), LOCK_EX | LOCK_NB) == 0 ? 0 : errno;
  } while (failed == EINTR);
  if (failed == EWOULDBLOCK) return HeldElsewhere{};
  if (failed) return Unavailable{fmt::format("could not lock it (errno {})", failed)};
  return Held(std::move(file));
}

}  // namespace halvo::DreamLock
