#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include <sys/types.h>
#include <unistd.h>

#include "CaptureShared/Net/HTTPTransport.h"

namespace halvo {

class HTTPTransportRouter;

/// HTTP/1.1 over a Unix socket, one connection a request. On a TCP port another local account can listen in a server's place; a socket
/// in a private folder it cannot reach, and who answers is checked before a byte is sent.
class UnixSocketHTTPProtocol : public HTTPTransport {
 public:
  /// A socket address holds 104 bytes on some systems, its terminator included; held to everywhere, so that a path works anywhere.
  static constexpr std::size_t maxSocketPathBytes = 103;
  static constexpr std::string_view scheme = "http+unix";

  /// `serverUid`: the only account whose server is spoken to, this process's own unless a test says otherwise.
  explicit UnixSocketHTTPProtocol(uid_t serverUid = ::geteuid()) : serverUid_(serverUid) {}

  /// "http+unix://" and the path, percent-encoded, in the place of the host.
  static std::string baseURL(const std::filesystem::path& socketPath);
  /// The socket path back out of such a URL, whatever path follows it; absent for a URL of another scheme or without a path.
  static std::optional<std::filesystem::path> socketPath(std::string_view url);
  /// Makes a router send "http+unix" URLs this way.
  static void install(HTTPTransportRouter& router);

  HTTPResponse send(const HTTPRequest& request, const std::stop_token& stop) override;
  HTTPResponse stream(const HTTPRequest& request, const std::function<void(std::string_view)>& onBody,
                      const std::stop_token& stop) override;

 private:
  uid_t serverUid_;
};

}  // namespace halvo
