#include "tests/support/LoopbackServer.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <stdexcept>
#include <thread>

#include <fcntl.h>
#include <fmt/format.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/ssl.h>
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
bool waitFor(short events, int fd, int endFd) {
  pollfd fds[] = {{fd, events, 0}, {endFd, POLLIN, 0}};
  while (::poll(fds, 2, -1) < 0) {
  }
  return fds[1].revents == 0;
}
bool waitReadable(int fd, int endFd) { return waitFor(POLLIN, fd, endFd); }

/// Runs an operation on a TLS connection, whose socket does not block, to its end; what it answered, or 0 for a connection that is over.
template <class Operation>
int throughTLS(SSL* tls, int fd, int endFd, Operation&& operation) {
  for (;;) {
    const int done = operation();
    if (done > 0) return done;
    const auto wants = SSL_get_error(tls, done);
    if (wants != SSL_ERROR_WANT_READ && wants != SSL_ERROR_WANT_WRITE) return 0;
    if (!waitFor(wants == SSL_ERROR_WANT_READ ? POLLIN : POLLOUT, fd, endFd)) return 0;
  }
}

std::size_t contentLength(const std::string& head) {
  const auto at = head.find("Content-Length: ");
  return at == std::string::npos ? 0 : std::strtoul(head.c_str() + at + 16, nullptr, 10);
}

}  // namespace

std::string LoopbackServer::answer(std::string_view body, int status) {
  return fmt::format("HTTP/1.1 {} X\r\nContent-Length: {}\r\n\r\n{}", status, body.size(), body);
}

struct LoopbackServer::State {
  Handler handler;
  FileHandle listener, end{::eventfd(0, EFD_CLOEXEC)};
  std::string baseURL;
  std::optional<std::filesystem::path> socketPath;
  mutable std::mutex mutex;
  std::vector<Request> requests;
  std::atomic<std::size_t> bytes{0}, accepted{0};
  std::shared_ptr<SSL_CTX> tls;
  std::vector<std::jthread> connections;
  std::jthread accepting;

  void serve(FileHandle client) {
    std::string received;
    const std::unique_ptr<SSL, decltype(&SSL_free)> secured(tls ? SSL_new(tls.get()) : nullptr, SSL_free);
    if (secured) {
      // OpenSSL writes without a flag against it: a client that has gone must not end the program.
      sigset_t brokenPipe;
      sigemptyset(&brokenPipe), sigaddset(&brokenPipe, SIGPIPE);
      pthread_sigmask(SIG_BLOCK, &brokenPipe, nullptr);
      ::fcntl(client.fd(), F_SETFL, O_NONBLOCK);
      SSL_set_fd(secured.get(), client.fd());
      if (throughTLS(secured.get(), client.fd(), end.fd(), [&] { return SSL_accept(secured.get()); }) == 0) return;
    }
    for (;;) {
      const auto headEnd = received.find("\r\n\r\n");
      if (headEnd != std::string::npos && received.size() >= headEnd + 4 + contentLength(received)) {
        Request request{.head = received.substr(0, headEnd + 2), .body = received.substr(headEnd + 4)};
        {
          const std::lock_guard hold(mutex);
          requests.push_back(request);
        }
        Connection connection(client.fd(), end.fd(), secured.get());
        handler(request, connection);
        return;
      }
      char buffer[65536];
      if (!secured && !waitReadable(client.fd(), end.fd())) return;
      const auto count = secured ? throughTLS(secured.get(), client.fd(), end.fd(),
                                              [&] { return SSL_read(secured.get(), buffer, sizeof buffer); })
                                 : ::recv(client.fd(), buffer, sizeof buffer, 0);
      if (count <= 0) return;
      bytes += static_cast<std::size_t>(count);
      received.append(buffer, static_cast<std::size_t>(count));
    }
  }

  void accept() {
    while (waitReadable(listener.fd(), end.fd())) {
      FileHandle client(::accept4(listener.fd(), nullptr, nullptr, SOCK_CLOEXEC));
      if (!client) continue;
      ++accepted;
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
    const auto count = tls_ ? throughTLS(tls_, fd_, endFd_, [&] { return SSL_write(tls_, bytes.data(), static_cast<int>(bytes.size())); })
                            : ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (count <= 0) return;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
}

void LoopbackServer::Connection::sendInPieces(std::string_view bytes, std::size_t size) {
  for (; !bytes.empty(); bytes.remove_prefix(std::min(size, bytes.size()))) send(bytes.substr(0, size));
}

void LoopbackServer::Connection::hang() { waitReadable(fd_, endFd_); }

bool LoopbackServer::Connection::hang(std::chrono::milliseconds time) {
  pollfd fds[] = {{fd_, POLLIN, 0}, {endFd_, POLLIN, 0}};
  return ::poll(fds, 2, static_cast<int>(time.count())) == 0;
}

LoopbackServer::LoopbackServer(Handler handler, std::optional<std::filesystem::path> socketPath, std::shared_ptr<SSL_CTX> tls)
    : state_(std::make_unique<State>()) {
  state_->handler = std::move(handler);
  state_->tls = std::move(tls);
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
    state_->baseURL = fmt::format("{}://127.0.0.1:{}", state_->tls ? "https" : "http", ntohs(address.sin_port));
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

std::size_t LoopbackServer::connections() const { return state_->accepted; }

}  // namespace halvo::test
