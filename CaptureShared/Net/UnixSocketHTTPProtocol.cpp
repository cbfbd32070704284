#include "CaptureShared/Net/UnixSocketHTTPProtocol.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <memory>
#include <system_error>
#include <utility>

#include <fmt/format.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Net/HTTPResponseParser.h"
#include "CaptureShared/Net/HTTPTransportRouter.h"
#include "CaptureShared/Net/RequestCheck.h"
#include "CaptureShared/Net/TransportText.h"
#include "CaptureShared/Net/URLParts.h"

namespace halvo {
namespace {

using Steady = std::chrono::steady_clock;

constexpr std::size_t bufferBytes = 65536;

/// Waits that a stop or a deadline ends.
class Waiter {
 public:
  Waiter(double patienceSec, const std::stop_token& stop)
      : patience_(patienceSec), stop_(stop), wake_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), onStop_(stop, Wake{wake_.fd()}) {
    if (!wake_) throw std::system_error(errno, std::generic_category(), "eventfd");
  }

  /// The time allowed begins anew.
  void restart() { since_ = Steady::now(); }

  /// Waits until one of `events` holds on the descriptor and answers which; at most `capMs`, and then 0. Throws `Cancelled`, or
  /// `TransportError` when the time is up.
  short wait(int fd, short events, int capMs = 1000) {
    for (;;) {
      throwIfStopped(stop_);
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(patience_ - (Steady::now() - since_)).count();
      if (left <= 0) throw TransportError(TransportText::timedOut());
      pollfd fds[] = {{fd, events, 0}, {wake_.fd(), POLLIN, 0}};
      const int ready = ::poll(fds, 2, static_cast<int>(std::min<long>(left + 1, capMs)));
      throwIfStopped(stop_);
      if (ready < 0 && errno != EINTR) throw TransportError(TransportText::connectionLost(errnoText(errno)));
      if (ready > 0 && fds[0].revents != 0) return fds[0].revents;
      if (ready == 0 && fd < 0) return 0;
    }
  }

 private:
  struct Wake {
    int fd;
    void operator()() const { [[maybe_unused]] const auto written = ::eventfd_write(fd, 1); }
  };

  std::chrono::duration<double> patience_;
  std::stop_token stop_;
  FileHandle wake_;
  std::stop_callback<Wake> onStop_;
  Steady::time_point since_ = Steady::now();
};

FileHandle connectTo(const std::string& path, Waiter& waiter) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.data(), path.size());
  FileHandle socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!socket) throw TransportError(TransportText::couldNotConnect("socket: " + errnoText(errno)));
  while (::connect(socket.fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    if (errno == EISCONN) break;
    // A full queue of a server that is busy with one long answer: nothing tells when it has room, so it is asked again.
    if (errno != EAGAIN && errno != EINTR)
      throw TransportError(TransportText::couldNotConnect(fmt::format("connect({}): {}", path, errnoText(errno))));
    waiter.wait(-1, 0, 20);
  }
  return socket;
}

/// A server that is not ours must never see a request.
void requireServer(const FileHandle& socket, const std::string& path, uid_t wanted) {
  ucred peer{};
  socklen_t size = sizeof peer;
  if (::getsockopt(socket.fd(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0)
    throw TransportError(TransportText::couldNotConnect(fmt::format("{}: peer credentials: {}", path, errnoText(errno))));
  if (peer.uid != wanted)
    throw TransportError(TransportText::couldNotConnect(fmt::format("{}: served by uid {}, not {}", path, peer.uid, wanted)));
}

std::string encoded(const HTTPRequest& request, const URLParts& parts) {
  auto bytes = fmt::format("{} {} HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n", request.method, parts.requestTarget());
  for (const auto& [name, value] : request.headers) bytes += fmt::format("{}: {}\r\n", name, value);
  bytes += fmt::format("Content-Length: {}\r\n\r\n", request.body.size());
  return bytes + request.body;
}

HTTPResponse run(const HTTPRequest& request, const std::function<void(std::string_view)>* onBody, uid_t serverUid,
                 const std::stop_token& stop) {
  throwIfStopped(stop);
  const auto parts = URLParts::parse(request.url);
  const auto socketPath = UnixSocketHTTPProtocol::socketPath(request.url);
  if (!parts || !socketPath) throw TransportError(TransportText::couldNotConnect("not a http+unix URL"));
  const auto& path = socketPath->native();
  if (path.size() > UnixSocketHTTPProtocol::maxSocketPathBytes)
    throw TransportError(TransportText::couldNotConnect(
        fmt::format("socket path is {} bytes, over the {}-byte limit: {}", path.size(), UnixSocketHTTPProtocol::maxSocketPathBytes, path)));
  RequestCheck::requireCleanHead(request);

  Waiter waiter(request.timeoutSec, stop);
  const auto socket = connectTo(path, waiter);
  requireServer(socket, path, serverUid);

  const auto bytes = encoded(request, *parts);
  const auto buffer = std::make_unique<char[]>(bufferBytes);
  std::size_t sent = 0;
  HTTPResponseParser parser;
  std::string body;
  bool isHeadTold = !onBody || !request.onHead;
  const auto take = [&](std::string_view piece) {
    if (!std::exchange(isHeadTold, true) && parser.head().isSuccess()) request.onHead(parser.head());
    RequestCheck::deliver(piece, parser.head().status, onBody, body);
  };

  while (!parser.isComplete()) {
    const bool sending = sent < bytes.size();
    const auto ready = waiter.wait(socket.fd(), static_cast<short>(sending ? POLLIN | POLLOUT : POLLIN));
    if (sending && (ready & POLLOUT)) {
      const auto count = ::send(socket.fd(), bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
      if (count > 0)
        sent += static_cast<std::size_t>(count);
      else if (errno == EPIPE || errno == ECONNRESET)
        sent = bytes.size();  // it has stopped listening; what it said before that may still be read
      else if (errno != EAGAIN && errno != EINTR)
        throw TransportError(TransportText::connectionLost(errnoText(errno)));
    }
    if (!(ready & (POLLIN | POLLHUP | POLLERR))) continue;
    const auto count = ::recv(socket.fd(), buffer.get(), bufferBytes, 0);
    if (count < 0) {
      if (errno == EAGAIN || errno == EINTR) continue;
      throw TransportError(TransportText::connectionLost(errnoText(errno)));
    }
    if (count == 0) {
      parser.finish();
      break;
    }
    if (onBody) waiter.restart();
    parser.feed({buffer.get(), static_cast<std::size_t>(count)}, take);
  }
  auto response = parser.head();
  response.body = std::move(body);
  return response;
}

}  // namespace

std::string UnixSocketHTTPProtocol::baseURL(const std::filesystem::path& socketPath) {
  return fmt::format("{}://{}", scheme, percentEncoded(socketPath.native()));
}

std::optional<std::filesystem::path> UnixSocketHTTPProtocol::socketPath(std::string_view url) {
  const auto parts = URLParts::parse(url);
  if (!parts || parts->scheme != scheme || parts->user || parts->port) return std::nullopt;
  const auto path = percentDecoded(parts->host);
  if (!path || path->empty() || path->find('\0') != std::string::npos) return std::nullopt;
  return std::filesystem::path(*path);
}

void UnixSocketHTTPProtocol::install(HTTPTransportRouter& router) { router.add(scheme, std::make_shared<UnixSocketHTTPProtocol>()); }

HTTPResponse UnixSocketHTTPProtocol::send(const HTTPRequest& request, const std::stop_token& stop) {
  return run(request, nullptr, serverUid_, stop);
}

HTTPResponse UnixSocketHTTPProtocol::stream(const HTTPRequest& request, const std::function<void(std::string_view)>& onBody,
                                            const std::stop_token& stop) {
  return run(request, &onBody, serverUid_, stop);
}

}  // namespace halvo
