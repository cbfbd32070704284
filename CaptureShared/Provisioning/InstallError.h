#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace halvo {

/// Why a model's file did not come. `what()` is for a person and, but for a wrong checksum, does not name the file.
class InstallError : public std::runtime_error {
 public:
  enum class Kind {
    httpStatus,        ///< the server said no; what came before is kept
    checksumMismatch,  ///< all of it came, and it was wrong: thrown away
    sizeMismatch,
    network,  ///< the connection broke; what came is kept, and the next try goes on from there
    fileSystem,
    unsupportedPlatform
  };
  static InstallError httpStatus(std::string file, int status);
  static InstallError checksumMismatch(std::string file);
  static InstallError sizeMismatch(std::string file, std::int64_t expected, std::int64_t actual);
  /// `reason` is a transport's text.
  static InstallError network(std::string file, const std::string& reason);
  static InstallError fileSystem(std::string file, const std::string& message);
  static InstallError unsupportedPlatform(std::string file);

  Kind kind() const { return kind_; }
  const std::string& file() const { return file_; }

 private:
  InstallError(Kind kind, std::string file, const std::string& words) : std::runtime_error(words), kind_(kind), file_(std::move(file)) {}
  Kind kind_;
  std::string file_;
};

}  // namespace halvo
