#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "CaptureShared/Foundation/Environment.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Recording/SymmetricKey.h"
#include "CaptureShared/Recording/VideoEncryptionFormat.h"

/// Lends a recording in the clear, for as long as somebody works on it.
namespace halvo::VideoDecryption {

/// The key of a generation; of a version 1 recording, which names none, when absent. Throws when it can't be had.
using KeyForGeneration = std::function<SymmetricKey(std::optional<std::uint32_t>)>;

class WithDecryptedFileError : public std::runtime_error {
 public:
  enum class Kind { keyUnavailable, ioError };
  static WithDecryptedFileError keyUnavailable(const std::string& reason);
  static WithDecryptedFileError ioError(const std::string& reason);
  Kind kind() const { return kind_; }

 private:
  WithDecryptedFileError(Kind kind, const std::string& text) : std::runtime_error(text), kind_(kind) {}
  Kind kind_;
};

/// A 0600 copy in the clear under "halvo-video-decrypt" in the temporary folder, removed with this object. It holds a lock on its file, so
/// that the next one made can tell, and remove, what a killed process left.
class DecryptedFile {
 public:
  /// Throws `WithDecryptedFileError`, and then leaves no copy.
  DecryptedFile(const std::filesystem::path& source, const KeyForGeneration& keyForGeneration, const Environment& environment);
  DecryptedFile(const DecryptedFile&) = delete;
  DecryptedFile& operator=(const DecryptedFile&) = delete;
  ~DecryptedFile();

  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
  FileHandle handle_;
};

struct Request {
  const std::filesystem::path& at;
  const KeyForGeneration& keyForGeneration;
  const Environment& environment;  ///< says where the temporary folder is
};
/// Answers what `perform` does with the path of a copy in the clear; the copy is gone afterwards, come what may. A file that is not
/// encrypted is handed over itself, and no key asked for. Throws `WithDecryptedFileError`; what `perform` throws passes as it is.
template <class Perform>
decltype(auto) withDecryptedFile(const Request& request, Perform&& perform) {
  if (!VideoEncryptionFormat::isEncrypted(request.at)) return std::forward<Perform>(perform)(request.at);
  const DecryptedFile copy(request.at, request.keyForGeneration, request.environment);
  return std::forward<Perform>(perform)(copy.path());
}

}  // namespace halvo::VideoDecryption
