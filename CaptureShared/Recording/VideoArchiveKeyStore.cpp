#include "CaptureShared/Recording/VideoArchiveKeyStore.h"

#include <algorithm>
#include <mutex>

#include <fmt/format.h>

#include "CaptureShared/Foundation/ExecutablePath.h"
#include "CaptureShared/Foundation/Match.h"
#include "CaptureShared/Recording/StoredKey.h"

namespace halvo {
namespace {

namespace fs = std::filesystem;
using KeyError = VideoArchiveKeyStore::KeyError;
using Backend = ArchiveKeyBackend;

constexpr int authenticationFailed = -25293;
constexpr std::string_view label = "Halvo video archive key";

KeyError copyFailed(int status, const std::optional<std::string>& text, KeyError (*kind)(const std::string&)) {
  return kind(fmt::format("SecItemCopyMatching failed: {} ({})", status, text.value_or("unknown")));
}

std::mutex& readLock() {
  static std::mutex lock;
  return lock;
}

}  // namespace

KeyError KeyError::unreadable(const std::string& detail) { return {Kind::unreadable, "video archive key unreadable: " + detail}; }
KeyError KeyError::aclMismatch(const std::string& detail) {
  return {Kind::aclMismatch, "video archive key exists but this process's identity isn't trusted: " + detail};
}
KeyError KeyError::missing() { return {Kind::missing, "no video archive key in the Keychain"}; }
KeyError KeyError::locked() { return {Kind::locked, "login keychain is locked or not yet available"}; }
KeyError KeyError::itemAlreadyExists() {
  return {Kind::itemAlreadyExists, "a video archive key already exists — refusing to replace it"};
}
KeyError KeyError::noWriterInACL() {
  return {Kind::noWriterInACL,
          "refusing to create a video archive key with no path to Capturer in its ACL — that key could never be read by the one process that "
          "needs to write with it"};
}

Backend::Item VideoArchiveKeyStore::item(std::int64_t generation) const {
  return {.service = names_.service,
          .account = generation <= 1 ? names_.account : fmt::format("{}.g{}", names_.account, generation),
          .keychainPath = names_.keychainPath};
}

SymmetricKey VideoArchiveKeyStore::read(const Backend::Item& item) const {
  auto finding = [&] {
    const std::lock_guard hold(readLock());
    return backend_->find(item);
  }();
  return match(
      std::move(finding),
      [](SecretBytes&& text) -> SymmetricKey {
        if (auto key = StoredKey::decode(std::move(text))) return *key;
        throw KeyError::unreadable("the Keychain item is present but not a valid key");
      },
      [](Backend::Absent&&) -> SymmetricKey { throw KeyError::missing(); },
      [](Backend::Refused&& refused) -> SymmetricKey {
        throw copyFailed(authenticationFailed, refused.text, KeyError::aclMismatch);
      },
      [](Backend::Locked&&) -> SymmetricKey { throw KeyError::locked(); },
      [](Backend::Failed&& failed) -> SymmetricKey {
        throw copyFailed(failed.status, failed.text, KeyError::unreadable);
      });
}

VideoArchiveKeyStore::Found VideoArchiveKeyStore::walk(int max, const Creator& create) const {
  max = std::max(1, max);
  for (int generation = 1; generation <= max; ++generation) {
    const auto candidate = item(generation);
    try {
      return {.key = read(candidate), .generation = generation};
    } catch (const KeyError& error) {
      if (error.kind() == KeyError::Kind::aclMismatch) continue;
      // Only a store that says plainly that there is no item leads to a new one.
      if (error.kind() != KeyError::Kind::missing || !create) throw;
    }
    return {.key = create(candidate), .generation = generation};
  }
  throw KeyError::unreadable(fmt::format("exhausted {} key generations, all unreadable", max));
}

SymmetricKey VideoArchiveKeyStore::load() const { return loadCurrent(maxGeneration); }
SymmetricKey VideoArchiveKeyStore::loadCurrent(int max) const { return loadCurrentWithGeneration(max).key; }
VideoArchiveKeyStore::Found VideoArchiveKeyStore::loadCurrentWithGeneration(int max) const { return walk(max, {}); }
SymmetricKey VideoArchiveKeyStore::loadGeneration(std::int64_t generation) const { return read(item(generation)); }

SymmetricKey VideoArchiveKeyStore::keyForGeneration(std::optional<std::uint32_t> generation) const {
  return generation ? loadGeneration(*generation) : load();
}

VideoArchiveKeyStore::Loaded VideoArchiveKeyStore::loadOrRotate(const Provision& provision) const {
  bool isMade = false;
  try {
    auto found = walk(provision.max, [&](const Backend::Item& item) {
      auto key = create(item, provision);
      isMade = true;
      return key;
    });
    return {.key = found.key, .rotated = isMade && found.generation >= 2, .generation = found.generation};
  } catch (const KeyError& error) {
    if (error.kind() != KeyError::Kind::itemAlreadyExists) throw;
  }
  // Another process was first: its key is the one.
  auto found = walk(provision.max, {});
  return {.key = found.key, .rotated = false, .generation = found.generation};
}

SymmetricKey VideoArchiveKeyStore::create(const Backend::Item& item, const Provision& provision) const {
  const auto& paths = provision.trustedApplicationPaths;
  if (std::none_of(paths.begin(), paths.end(), [](const fs::path& path) { return path.native().ends_with("/Capturer"); }))
    throw KeyError::noWriterInACL();
  auto key = SymmetricKey::random();
  const auto addition = backend_->add({.item = item,
                                       .secret = StoredKey::encode(key, provision.nowMs),
                                       .label = std::string(label),
                                       .includeSelf = provision.includeSelf,
                                       .readers = paths});
  match(
      addition, [](const Backend::Added&) {}, [](const Backend::Duplicate&) { throw KeyError::itemAlreadyExists(); },
      [](const Backend::NoSelf& failure) {
        throw KeyError::unreadable(fmt::format("could not describe this process for the ACL: {}", failure.status));
      },
      [](const Backend::NoReader& failure) {
        throw KeyError::unreadable(fmt::format("could not add {} to the ACL: {}", failure.path.string(), failure.status));
      },
      [](const Backend::NoReaderList& failure) { throw KeyError::unreadable(fmt::format("SecAccessCreate failed: {}", failure.status)); },
      [](const Backend::Failed& failure) {
        throw KeyError::unreadable(fmt::format("SecItemAdd failed: {} ({})", failure.status, failure.text.value_or("unknown")));
      });
  return key;
}

std::vector<fs::path> VideoArchiveKeyStore::trustedApplicationPaths(const fs::path& appBundle, std::string_view appBundleExecutableName) {
  std::vector<fs::path> paths;
  const auto consider = [&](std::string_view name) {
    if (auto path = appBundle / name; ExecutablePath::isExecutableFile(path)) paths.push_back(std::move(path));
  };
  for (const auto name : trustedExecutableNames) consider(name);
  consider(appBundleExecutableName);
  if (appBundleExecutableName == applicationName) consider(applicationWindowName);
  consider(trustedCommandName);
  return paths;
}

std::optional<std::vector<fs::path>> VideoArchiveKeyStore::trustedApplicationPathsForCurrentBundle() {
  try {
    return trustedApplicationPaths(ExecutablePath::siblingDirectory(ExecutablePath::resolveSelf()), applicationName);
  } catch (const fs::filesystem_error&) {
    return std::nullopt;
  }
}

}  // namespace halvo
