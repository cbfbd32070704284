#include "AmbitudeCore/Backends/Server/LlamaServerSocket.h"

#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Net/UnixSocketHTTPProtocol.h"

namespace halvo::LlamaServerSocket {
namespace {

using Kind = PrepareError::Kind;

[[noreturn]] void failedCall(Kind kind, const char* call, const std::string& path) {
  throw PrepareError(kind, fmt::format("{} {}: {}", call, path, errnoText(errno)));
}

void checkDirectory(const std::string& directory, uid_t uid) {
  struct stat info {};
  if (::lstat(directory.c_str(), &info) != 0) failedCall(Kind::lstatFailed, "lstat", directory);
  if (!S_ISDIR(info.st_mode)) throw PrepareError(Kind::unsafeDirectory, directory + " is not a directory (a symlink or a file)");
  if (info.st_uid != uid)
    throw PrepareError(Kind::unsafeDirectory, fmt::format("{} is owned by uid {}, not this user ({})", directory, info.st_uid, uid));
  constexpr mode_t everyoneElse = 077, ours = 0700;
  if ((info.st_mode & everyoneElse) != 0 && ::chmod(directory.c_str(), ours) != 0) failedCall(Kind::unsafeDirectory, "chmod", directory);
}

bool isListening(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.data(), path.size());
  const FileHandle probe(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (::connect(probe.fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return true;
  return errno == EAGAIN;  // someone listens, with as many callers waiting as fit
}

}  // namespace

void prepare(const std::filesystem::path& socketPath, uid_t uid) {
  const auto& path = socketPath.native();
  constexpr auto limit = UnixSocketHTTPProtocol::maxSocketPathBytes;
  if (path.size() > limit) throw PrepareError(Kind::pathTooLong, fmt::format("the socket path is longer than {} bytes: {}", limit, path));
  checkDirectory(socketPath.parent_path().native(), uid);
  struct stat info {};
  if (::lstat(path.c_str(), &info) != 0) {
    if (errno == ENOENT) return;
    failedCall(Kind::lstatFailed, "lstat", path);
  }
  if (!S_ISSOCK(info.st_mode)) throw PrepareError(Kind::notASocket, path + " exists and is not a socket; not removing it");
  if (info.st_uid == uid && isListening(path)) throw PrepareError(Kind::alreadyListening, "another server is already listening on " + path);
  if (::unlink(path.c_str()) != 0) failedCall(Kind::unlinkFailed, "unlink", path);
}

}  // namespace halvo::LlamaServerSocket
