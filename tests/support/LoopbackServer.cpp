#include "tests/support/LoopbackServer.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <stdexcept>
#include <thread>

#include <fmt/format.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Net/UnixSocketHTTPProtocol.h"

namespace halvo::test {
namespace {

/// False when the server is ending.
bool waitReadable(int fd, int endFd) {
  pollfd fds[] = {{fd, POLLIN, 0}, {endFd, POLLIN, 0}};
  while (::poll(fds, 2, -1) < 0) {
  }
  return fds[1].revents == 0;
}

std::size_t contentLength(const std::string& head) {
  const auto at = head.find("Content-Length: ");
  return at == std::string::npos ? 0 : std::strtoul(head.c_str() + at + 16, nullptr, 10);
}

}  // namespace

struct LoopbackServer::State {
  Handler handler;
  FileHandle listener, end{::eventfd(0, EFD_CLOEXEC)};
  std::string baseURL;
  std::optional<std::filesystem::path> socketPath;
  mutable std::mutex mutex;
  std::vector<Request> requests;
  std::atomic<std::size_t> bytes{0};
  std::vector<std::jthread> connections;
  std::jthread accepting;

  void serve(FileHandle client) {
    std::string received;
    for (;;) {
      const auto headEnd = received.find("\r\n\r\n");
      if (headEnd != std::string::npos && received.size() >= headEnd + 4 + contentLength(received)) {
        Request request{.head = received.substr(0, headEnd + 2), .body = received.substr(headEnd + 4)};
        {
          const std::lock_guard hold(mutex);
          requests.push_back(request);
        }
        Connection connection(client.fd(), end.fd());
        handler(request, connection);
        return;
      }
      char buffer[65536];
      if (!waitReadable(client.fd(), end.fd())) return;
      const auto count = ::recv(client.fd(), buffer, sizeof buffer, 0);
      if (count <= 0) return;
      bytes += static_cast<std::size_t>(count);
      received.append(buffer, static_cast<std::size_t>(count));
    }
  }

  void accept() {
    while (waitReadable(listener.fd(), end.fd())) {
      FileHandle client(::accept4(listener.fd(), nullptr, nullptr, SOCK_CLOEXEC));
      if (!client) continue;
      const int on = 1;
      ::setsockopt(client.fd(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
      connections.emplace_back([this, held = std::make_shared<FileHandle>(std::move(client))] { serve(std::move(*held)); });
    }
  }
};

std::string LoopbackServer::Request::path() const {
  const auto begin = head.find(' ') + 1;
  return head.substr(begin, head.find(' ', begin) - begin);
}

void LoopbackServer::Connection::send(std::string_view bytes) {
  while (!bytes.empty()) {
    const auto count = ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (count <= 0) return;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
}

void LoopbackServer::Connection::sendInPieces(std::string_view bytes, std::size_t size) {
  for (; !bytes.empty(); bytes.remove_prefix(std::min(size, bytes.size()))) send(bytes.substr(0, size));
}

void LoopbackServer::Connection::hang() { waitReadable(fd_, endFd_); }

LoopbackServer::LoopbackServer(Handler handler, std::optional<std::filesystem::path> socketPath) : state_(std::make_unique<State>()) {
  state_->handler = std::move(handler);
  state_->listener = FileHandle(::socket(socketPath ? AF_UNIX : AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const int fd = state_->listener.fd();
  int bound = -1;
  if (socketPath) {
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    std::memcpy(address.sun_path, socketPath->c_str(), std::min(socketPath->native().size(), sizeof address.sun_path));
    bound = ::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    state_->baseURL = UnixSocketHTTPProtocol::baseURL(*socketPath);
    state_->socketPath = socketPath;
  } else {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    bound = ::bind(fd, reinterpret_cast<const sockaddr*>(&address), size);
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
    state_->baseURL = fmt::format("http://127.0.0.1:{}", ntohs(address.sin_port));
  }
  if (bound != 0 || ::listen(fd, 16) != 0) throw std::runtime_error("the loopback server cannot listen: " + errnoText(errno));
  state_->accepting = std::jthread([state = state_.get()] { state->accept(); });
}

LoopbackServer::~LoopbackServer() {
  ::eventfd_write(state_->end.fd(), 1);
  state_->accepting.join();
  state_->connections.clear();
  if (state_->socketPath) ::unlink(state_->socketPath->c_str());
}

std::string LoopbackServer::baseURL() const { return state_->baseURL; }

std::vector<LoopbackServer::Request> LoopbackServer::requests() const {
  const std::lock_guard hold(state_->mutex);
  return state_->requests;
}

std::size_t LoopbackServer::bytesReceived() const { return state_->bytes; }

}  // namespace halvo::test
