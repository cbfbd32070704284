#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct ssl_st;
struct ssl_ctx_st;

namespace halvo::test {

/// A server for tests that sends exactly the bytes it is told to, over TCP on the loopback, with TLS or without, or over a Unix socket. A
/// thread a connection, one request a connection; everything ends with the object.
class LoopbackServer {
 public:
  struct Request {
    std::string head = {};  ///< request line and headers
    std::string body = {};
    std::string path() const;
  };

  /// The answering side of one connection.
  class Connection {
   public:
    Connection(int fd, int endFd, ssl_st* tls) : fd_(fd), endFd_(endFd), tls_(tls) {}
    /// All of it; a client that has gone is no error.
    void send(std::string_view bytes);
    /// In writes of `size` bytes, each pushed out by itself.
    void sendInPieces(std::string_view bytes, std::size_t size);
    /// Holds the connection open and silent until the client or the server goes.
    void hang();
    /// The same for so long at most; whether both are still there.
    bool hang(std::chrono::milliseconds time);

   private:
    int fd_, endFd_;
    ssl_st* tls_;
  };
  using Handler = std::function<void(const Request&, Connection&)>;
  /// A whole answer with that body.
  static std::string answer(std::string_view body, int status = 200);

  /// Without a socket path: TCP on a free port.
  explicit LoopbackServer(Handler handler, std::optional<std::filesystem::path> socketPath = {}, std::shared_ptr<ssl_ctx_st> tls = {});
  ~LoopbackServer();

  std::string baseURL() const;
  std::vector<Request> requests() const;
  /// Bytes that came in over all connections, whole requests or not.
  std::size_t bytesReceived() const;
  std::size_t connections() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace halvo::test
