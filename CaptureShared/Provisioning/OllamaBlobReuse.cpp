#include "CaptureShared/Provisioning/OllamaBlobReuse.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <system_error>

#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Foundation/UserFolders.h"
#include "CaptureShared/Provisioning/LocalModelStore.h"
#include "CaptureShared/Provisioning/ModelProvisioning.h"

namespace halvo::OllamaBlobReuse {
namespace {

constexpr std::size_t blockBytes = 1 << 20;

[[noreturn]] void fail(const fs::path& file) { throw std::system_error(errno, std::generic_category(), file.string()); }

void linkFile(const fs::path& source, const fs::path& destination) {
  // Followed: a hard link to a symbolic link would leave the bytes where anyone may swap them.
  if (::linkat(AT_FDCWD, source.c_str(), AT_FDCWD, destination.c_str(), AT_SYMLINK_FOLLOW) != 0) fail(destination);
}

void copyFile(const fs::path& source, const fs::path& destination, const std::stop_token& stop) {
  const auto from = FileHandle::openForRead(source);
  const FileHandle to(::open(destination.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (!to) fail(destination);
  const auto block = std::make_unique<char[]>(blockBytes);
  std::uint64_t offset = 0;
  while (const auto count = from.readInto({block.get(), blockBytes}, offset)) {
    throwIfStopped(stop);
    writeAll(to.fd(), {block.get(), count}, destination);
    offset += count;
  }
  if (::fdatasync(to.fd()) != 0) fail(destination);
}

/// A file on its way that goes unless it was moved to its name.
struct Scratch {
  fs::path path;
  ~Scratch() { ::unlink(path.c_str()); }
};

LinkMethod place(const fs::path& source, const fs::path& destination, const FileOperations& operations) {
  try {
    operations.link(source, destination);
    return LinkMethod::hardlink;
  } catch (const std::system_error&) {
    ::unlink(destination.c_str());
    operations.copy(source, destination);
    return LinkMethod::copy;
  }
}

}  // namespace

fs::path modelsDirectory(const Environment& environment) {
  const auto named = value(environment, "OLLAMA_MODELS");
  return named && !Text::isBlank(*named) ? fs::path(Text::trim(*named)) : UserFolders::home(environment) / ".ollama" / "models";
}

fs::path candidate(const LocalModelStore::Artifact& artifact, const fs::path& in) { return in / "blobs" / ("sha256-" + artifact.sha256); }

bool candidateExists(const LocalModelStore::Artifact& artifact, const fs::path& in) {
  const auto identity = LocalModelStore::fileIdentity(candidate(artifact, in));
  return identity && identity->size == artifact.bytes;
}

bool candidateNeedsNoNewSpace(const LocalModelStore::Artifact& artifact, const fs::path& in, const fs::path& installingInto) {
  if (!candidateExists(artifact, in)) return false;
  try {
    return FileIdentity::of(candidate(artifact, in)).device ==
           FileIdentity::of(ModelProvisioning::nearestExistingAncestor(installingInto)).device;
  } catch (const std::system_error&) {
    return false;
  }
}

FileOperations FileOperations::real(const std::stop_token& stop) {
  return {.link = linkFile, .copy = [stop](const fs::path& source, const fs::path& destination) { copyFile(source, destination, stop); }};
}

Outcome reuse(const LocalModelStore::Artifact& artifact, const fs::path& into, const fs::path& ollamaModelsDirectory,
              const FileOperations& fileOperations, const std::stop_token& stop) {
  if (!candidateExists(artifact, ollamaModelsDirectory)) return NoCandidate{};
  const Scratch scratch{into / (artifact.fileName + ".borrowed")};
  ::unlink(scratch.path.c_str());  // of a process that was killed
  try {
    const auto method = place(candidate(artifact, ollamaModelsDirectory), scratch.path, fileOperations);
    // What was placed is what is checked: the candidate may be another file by now.
    const auto placed = LocalModelStore::hashed(scratch.path, stop);
    if (placed.sha256 != artifact.sha256) return HashMismatch{};
    fs::rename(scratch.path, LocalModelStore::path(artifact, into));
    LocalModelStore::recordVerified(artifact, into, placed.identity);
    return Reused{method};
  } catch (const std::system_error&) {
    return NoCandidate{};
  }
}

}  // namespace halvo::OllamaBlobReuse
