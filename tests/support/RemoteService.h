#pragma once

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/support/LoopbackServer.h"

namespace halvo::test {

/// The remote routing service as its clients see it: TLS on the loopback, with a certificate made when it starts. What it answers is up to
/// its handler. Everything ends with the object, also in the middle of an answer.
class RemoteService {
 public:
  struct Request {
    std::string method = {}, path = {};
    std::string head = {};  ///< request line and headers, as they came
    std::string body = {};
    /// A header's value, its name compared without case.
    std::optional<std::string> header(std::string_view name) const;
  };

  using Headers = std::initializer_list<std::pair<std::string_view, std::string_view>>;

  /// One answer on its way. A handler that returns in the middle of one has cut the connection.
  class Answer {
   public:
    explicit Answer(LoopbackServer::Connection& connection) : connection_(connection) {}
    /// A whole answer.
    void json(int status, std::string_view body, Headers headers = {});
    /// The head of an event stream; then `event` and `comment` as often as wanted, and `done`.
    void beginStream();
    void event(std::string_view payload);
    void comment(std::string_view text);
    /// "[DONE]" and the end of the body.
    void done();
    /// Bytes as they are.
    void raw(std::string_view bytes) { connection_.send(bytes); }
    /// Holds the connection open and silent until the client or the service goes.
    void hang() { connection_.hang(); }
    /// The same for so long at most; whether both are still there.
    bool stall(std::chrono::milliseconds time) { return connection_.hang(time); }

   private:
    void chunk(std::string_view bytes);
    LoopbackServer::Connection& connection_;
  };
  using Handler = std::function<void(const Request&, Answer&)>;

  explicit RemoteService(Handler handler);
  ~RemoteService();

  /// "https://127.0.0.1:<port>"
  std::string baseURL() const;
  /// The same with "/api/v1/chat/completions" behind it.
  std::string chatEndpoint() const;
  /// The certificate to trust, for `SSL_CERT_FILE`; goes with the object.
  std::filesystem::path certificateFile() const;

  /// Every whole request, in the order they came.
  std::vector<Request> requests() const;
  /// Accepted so far, whether or not a request came over them.
  std::size_t connections() const;

  /// The body of a plain reply: text, provider, usage with a cost.
  static std::string reply(std::string_view text, std::string_view provider = "DeepInfra");
  /// The payload of one piece of a streamed reply, and the two that end it: the finish reason, then usage with a cost.
  static std::string piece(std::string_view text, std::string_view provider = "DeepInfra");
  static std::vector<std::string> ending(std::string_view provider = "DeepInfra");

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace halvo::test
