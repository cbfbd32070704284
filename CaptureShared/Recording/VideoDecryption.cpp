#include "CaptureShared/Recording/VideoDecryption.h"

#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "CaptureShared/Foundation/UUID.h"
#include "CaptureShared/Foundation/UserFolders.h"
#include "CaptureShared/Recording/VideoStreamDecryptor.h"

namespace halvo::VideoDecryption {
namespace {

namespace fs = std::filesystem;

constexpr auto folderName = "halvo-video-decrypt";
constexpr auto extension = ".mkv";
constexpr int maxAttempts = 5;

/// Removes the copies whose process is gone: those that nobody holds a lock on.
void removeAbandoned(const fs::path& folder) {
  std::error_code ignored;
  for (auto entry = fs::directory_iterator(folder, ignored); entry != fs::directory_iterator(); entry.increment(ignored)) {
    if (entry->path().extension() != extension) continue;
    const FileHandle handle(::open(entry->path().c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    if (handle && ::flock(handle.fd(), LOCK_EX | LOCK_NB) == 0) ::unlink(entry->path().c_str());
  }
}

/// A new file of ours under lock; no descriptor when it can't be had.
FileHandle createLocked(const fs::path& file) {
  FileHandle handle(::open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  struct stat status {};
  // Between its making and its lock another process may have taken it for abandoned.
  if (handle && (::flock(handle.fd(), LOCK_EX) != 0 || ::fstat(handle.fd(), &status) != 0 || status.st_nlink == 0)) {
    ::unlink(file.c_str());
    handle.reset();
  }
  return handle;
}

SymmetricKey keyOf(const fs::path& source, const KeyForGeneration& keyForGeneration) {
  try {
    return keyForGeneration(VideoEncryptionFormat::peekHeaderGeneration(source));
  } catch (const std::exception& error) {
    throw WithDecryptedFileError::keyUnavailable(error.what());
  }
}

}  // namespace

WithDecryptedFileError WithDecryptedFileError::keyUnavailable(const std::string& reason) {
  return {Kind::keyUnavailable, "video archive key unavailable: " + reason};
}
WithDecryptedFileError WithDecryptedFileError::ioError(const std::string& reason) {
  return {Kind::ioError, "decrypting video failed: " + reason};
}

DecryptedFile::DecryptedFile(const fs::path& source, const KeyForGeneration& keyForGeneration, const Environment& environment) {
  const auto key = keyOf(source, keyForGeneration);
  try {
    const auto folder = UserFolders::systemTemp(environment) / folderName;
    ::mkdir(folder.c_str(), 0700);  // a failure shows at the file
    removeAbandoned(folder);
    const FileHandle input(::open(source.c_str(), O_RDONLY | O_CLOEXEC));
    if (!input) throw WithDecryptedFileError::ioError("could not open " + source.string() + " for reading");
    for (int attempt = 0; !handle_ && attempt < maxAttempts; ++attempt) {
      path_ = folder / (newUUID() + extension);
      handle_ = createLocked(path_);
    }
    if (!handle_) throw WithDecryptedFileError::ioError("could not open " + path_.string() + " for writing");
    VideoStreamDecryptor decryptor(key, input.fd());
    while (const auto chunk = decryptor.readChunk()) writeAll(handle_.fd(), *chunk, path_);
  } catch (const std::exception& error) {
    if (handle_) ::unlink(path_.c_str());
    if (dynamic_cast<const WithDecryptedFileError*>(&error)) throw;
    throw WithDecryptedFileError::ioError(error.what());
  }
}

DecryptedFile::~DecryptedFile() { ::unlink(path_.c_str()); }

}  // namespace halvo::VideoDecryption
