#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <variant>
#include <vector>

#include "CaptureShared/Foundation/Environment.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Provisioning/LocalModelStamps.h"
#include "CaptureShared/Provisioning/ModelCatalogue.h"

/// What is on the disk of a local model, and whether it can be trusted.
namespace halvo::LocalModelStore {

/// "Library/Application Support/AmbitCapture/models" under the home folder.
std::filesystem::path modelsDirectory(const Environment& environment);
std::filesystem::path path(const Artifact& artifact, const std::filesystem::path& directory);
/// Absent when there is no regular file, links followed.
std::optional<FileIdentity> fileIdentity(const std::filesystem::path& at);

struct Missing {
  std::vector<std::string> files;  ///< absent, or of the wrong size
  bool operator==(const Missing&) const = default;
};
struct NeedsVerification {
  std::vector<std::string> files;  ///< there, but not as they were when they were last verified, if ever
  bool operator==(const NeedsVerification&) const = default;
};
struct Verified {
  bool operator==(const Verified&) const = default;
};
using DiskState = std::variant<Missing, NeedsVerification, Verified>;
/// By name, size and stamp alone: no file is read.
DiskState diskState(const Manifest& manifest, const std::filesystem::path& directory);

class VerificationError : public std::runtime_error {
 public:
  enum class Kind { missing, mismatch, unreadable, unsupportedPlatform };
  VerificationError(Kind kind, std::string file, std::string expected = {}, std::string actual = {});
  Kind kind() const { return kind_; }
  const std::string& file() const { return file_; }

 private:
  Kind kind_;
  std::string file_;
};

/// Called with the bytes read so far.
using OnRead = std::function<void(std::int64_t)>;

/// Hashes both files and stamps each that is right. Throws `VerificationError` at the first that is not, `std::system_error` when a stamp
/// can't be written, and `Cancelled`.
void verify(const Manifest& manifest, const std::filesystem::path& directory, const std::stop_token& stop = {}, const OnRead& onRead = {});

struct HashedFile {
  std::string sha256 = {};
  FileIdentity identity = {};  ///< of the file that was read, as it was when the reading began
};
/// One pass from the beginning to the end. Throws `std::system_error`, and `Cancelled` within a few milliseconds of a stop.
HashedFile hashed(const std::filesystem::path& file, const std::stop_token& stop = {}, const OnRead& onRead = {});
/// The digest alone.
std::string sha256(const std::filesystem::path& file, const std::stop_token& stop = {});

}  // namespace halvo::LocalModelStore
