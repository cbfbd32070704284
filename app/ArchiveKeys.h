#pragma once

#include <memory>

#include "CaptureShared/Recording/VideoArchiveKeyStore.h"
#include "CaptureShared/Recording/VideoDecryption.h"
#include "Platform/Linux/LinuxArchiveKeyBackend.h"

/// The keys that recordings of this account are sealed with, for reading.
namespace halvo::ArchiveKeys {

/// Looks for the keys when it is first asked for one. It throws what `VideoArchiveKeyStore::keyForGeneration` throws.
inline VideoDecryption::KeyForGeneration ofThisAccount() {
  return [backend = std::shared_ptr<LinuxArchiveKeyBackend>()](std::optional<std::uint32_t> generation) mutable {
    if (!backend) backend = std::make_shared<LinuxArchiveKeyBackend>(LinuxArchiveKeyBackend::forAccount(processEnvironment()));
    return VideoArchiveKeyStore(*backend).keyForGeneration(generation);
  };
}

}  // namespace halvo::ArchiveKeys
