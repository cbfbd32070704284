#include "CaptureShared/Provisioning/LocalModelStore.h"

#include <fcntl.h>
#include <fmt/format.h>

#include <memory>
#include <system_error>

#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/Digest.h"
#include "CaptureShared/Foundation/UserFolders.h"

namespace halvo::LocalModelStore {
namespace {

constexpr std::size_t blockBytes = 1 << 20;

std::string words(VerificationError::Kind kind, const std::string& file, const std::string& expected, const std::string& actual) {
  using Kind = VerificationError::Kind;
  switch (kind) {
    case Kind::missing:
      return file + " is missing";
    case Kind::mismatch:
      return fmt::format("{} has the checksum {} instead of {}", file, actual, expected);
    case Kind::unreadable:
      return file + " can't be read";
    case Kind::unsupportedPlatform:
      return "this machine can't compute a checksum";
  }
  return {};
}

HashedFile hashedOrRefused(const Artifact& artifact, const std::filesystem::path& file, const std::stop_token& stop, const OnRead& onRead) {
  using Kind = VerificationError::Kind;
  try {
    return hashed(file, stop, onRead);
  } catch (const std::system_error& error) {
    throw VerificationError(error.code() == std::errc::no_such_file_or_directory ? Kind::missing : Kind::unreadable, artifact.fileName);
  }
}

}  // namespace

VerificationError::VerificationError(Kind kind, std::string file, std::string expected, std::string actual)
    : std::runtime_error(words(kind, file, expected, actual)), kind_(kind), file_(std::move(file)) {}

std::filesystem::path modelsDirectory(const Environment& environment) { return UserFolders::supportDir(environment) / "models"; }

std::filesystem::path path(const Artifact& artifact, const std::filesystem::path& directory) { return directory / artifact.fileName; }

std::optional<FileIdentity> fileIdentity(const std::filesystem::path& at) {
  std::error_code ignored;
  if (!std::filesystem::is_regular_file(at, ignored)) return std::nullopt;
  try {
    return FileIdentity::of(at);
  } catch (const std::system_error&) {
    return std::nullopt;
  }
}

DiskState diskState(const Manifest& manifest, const std::filesystem::path& directory) {
  Missing missing;
  NeedsVerification unproved;
  for (const auto* artifact : manifest.artifacts()) {
    const auto identity = fileIdentity(path(*artifact, directory));
    if (!identity || identity->size != artifact->bytes)
      missing.files.push_back(artifact->fileName);
    else if (!stampMatches(*artifact, directory))
      unproved.files.push_back(artifact->fileName);
  }
  if (!missing.files.empty()) return missing;
  if (!unproved.files.empty()) return unproved;
  return Verified{};
}

void verify(const Manifest& manifest, const std::filesystem::path& directory, const std::stop_token& stop, const OnRead& onRead) {
  std::int64_t before = 0;
  for (const auto* artifact : manifest.artifacts()) {
    const auto told = onRead ? OnRead([&](std::int64_t bytes) { onRead(before + bytes); }) : OnRead();
    const auto found = hashedOrRefused(*artifact, path(*artifact, directory), stop, told);
    if (found.sha256 != artifact->sha256)
      throw VerificationError(VerificationError::Kind::mismatch, artifact->fileName, artifact->sha256, found.sha256);
    recordVerified(*artifact, directory, found.identity);
    before += artifact->bytes;
  }
}

HashedFile hashed(const std::filesystem::path& file, const std::stop_token& stop, const OnRead& onRead) {
  const auto handle = FileHandle::openForRead(file);
  ::posix_fadvise(handle.fd(), 0, 0, POSIX_FADV_SEQUENTIAL);
  HashedFile result{.identity = FileIdentity::of(handle)};
  Digest::SHA256 digest;
  const auto block = std::make_unique<char[]>(blockBytes);
  std::uint64_t offset = 0;
  for (;;) {
    throwIfStopped(stop);
    const auto count = handle.readInto({block.get(), blockBytes}, offset);
    if (count == 0) break;
    digest.update({block.get(), count});
    offset += count;
    if (onRead) onRead(static_cast<std::int64_t>(offset));
  }
  result.sha256 = digest.hex();
  return result;
}

std::string sha256(const std::filesystem::path& file, const std::stop_token& stop) { return hashed(file, stop).sha256; }

}  // namespace halvo::LocalModelStore
