#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "CaptureShared/Net/UnixSocketHTTPProtocol.h"
#include "tests/support/Eventually.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {

/// The other account's server, for one connection: its exit status is 0 when that closed without a byte. System calls only, as it is a
/// fork.
[[noreturn]] void serveAs(uid_t uid, const sockaddr_un& address) {
  const int listener = ::socket(AF_UNIX, SOCK_STREAM, 0);
  ::umask(0), ::alarm(20);
  const bool isUp = ::setuid(uid) == 0 && ::bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
                    ::listen(listener, 8) == 0;
  const int client = isUp ? ::accept(listener, nullptr, nullptr) : -1;
  char byte = 0;
  ::_exit(client >= 0 && ::recv(client, &byte, 1, 0) == 0 ? 0 : 1);
}

TEST(UnixSocket, aServerThatAnotherAccountRunsGetsNoByte) {
  if (::geteuid() != 0) {
    std::puts("only root can be another account too: not shown");
    return;
  }
  const test::TemporaryFolder folder;
  ::chmod(folder.path().c_str(), 0777);
  sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
  std::strcpy(address.sun_path, (folder.path() / "s").c_str());
  const pid_t server = ::fork();
  if (server == 0) serveAs(65534, address);
  EXPECT_TRUE(test::eventually([&] {
    try {
      UnixSocketHTTPProtocol().send({.method = "POST", .url = UnixSocketHTTPProtocol::baseURL(folder.path() / "s"), .body = "a picture"},
                                    {});
    } catch (const TransportError& error) {
      return std::string(error.what()).find(": served by uid 65534, not 0") != std::string::npos;
    }
    return false;
  }));
  int status = -1;
  ::waitpid(server, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "it saw the connection close, and nothing else";
}

}  // namespace
}  // namespace halvo
