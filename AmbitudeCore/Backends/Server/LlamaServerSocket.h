#pragma once

#include <sys/types.h>

#include <filesystem>
#include <stdexcept>
#include <string>

/// The place of the server's socket, made ready for it.
namespace halvo::LlamaServerSocket {

/// Why no server may be started on a path. `what()` is for a person.
class PrepareError : public std::runtime_error {
 public:
  enum class Kind { pathTooLong, notASocket, alreadyListening, unsafeDirectory, lstatFailed, unlinkFailed };
  PrepareError(Kind kind, const std::string& words) : std::runtime_error(words), kind_(kind) {}
  Kind kind() const { return kind_; }

 private:
  Kind kind_;
};

/// Checks that the folder is a real one of `uid`, closes it to everybody else, and removes a socket that nobody listens on any more;
/// nothing else is ever removed. Throws `PrepareError`.
void prepare(const std::filesystem::path& socketPath, uid_t uid);

}  // namespace halvo::LlamaServerSocket
