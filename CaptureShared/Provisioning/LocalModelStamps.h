#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Provisioning/ModelCatalogue.h"

/// What was proved before, so that gigabytes are not hashed at every start. "verified.json" in the models folder: a JSON list of stamps.
namespace halvo::LocalModelStore {

inline constexpr std::string_view stampFileName = "verified.json";

/// A file once had this digest, and was then this size, this old and this inode.
struct Stamp {
  std::string fileName = {};
  std::string sha256 = {};
  std::int64_t size = 0;
  std::int64_t modifiedNs = 0;  ///< since the epoch
  std::uint64_t inode = 0;
  bool operator==(const Stamp&) const = default;
};

/// Text that is no list gives none; an entry that is no stamp is left out.
std::vector<Stamp> decodeStamps(std::string_view json);
std::string encodeStamps(const std::vector<Stamp>& stamps);

/// A missing, unreadable or damaged file has no stamps: everything is verified again.
std::vector<Stamp> readStamps(const std::filesystem::path& directory);
/// True when the file is still the one that was stamped, and the stamp is for this very digest. Reads no byte of it.
bool stampMatches(const Artifact& artifact, const std::filesystem::path& directory);

/// Stamps a file that has just hashed to the artifact's digest, as it is now, or as it was while it was hashed. Throws `std::system_error`.
void recordVerified(const Artifact& artifact, const std::filesystem::path& directory);
void recordVerified(const Artifact& artifact, const std::filesystem::path& directory, const FileIdentity& hashed);
/// Takes a file's stamp away, when it has one. Throws `std::system_error`.
void removeStamp(std::string_view fileName, const std::filesystem::path& directory);

}  // namespace halvo::LocalModelStore
