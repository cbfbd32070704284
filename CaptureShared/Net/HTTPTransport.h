#pragma once

#include <functional>
#include <optional>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace halvo {

struct HTTPResponse {
  int status = 0;
  std::vector<std::pair<std::string, std::string>> headers = {};
  std::string body = {};
  /// A header's value, its name compared without case; absent when there is none.
  std::optional<std::string> header(std::string_view name) const;
  bool isSuccess() const { return status >= 200 && status <= 299; }
};

struct HTTPRequest {
  std::string method = "GET";
  std::string url = {};  ///< http, https, or "http+unix" with the percent-encoded socket path as its host
  std::vector<std::pair<std::string, std::string>> headers = {};
  std::string body = {};
  double timeoutSec = 60;  ///< for the whole of `send`; for `stream` the longest silence between two pieces
  /// Called by `stream` with status and headers of a 2xx answer, before its first piece; what it throws ends the transfer and is thrown on.
  std::function<void(const HTTPResponse&)> onHead = {};
};

/// The request never completed. `what()` is one of `TransportText`'s texts.
class TransportError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// One HTTP exchange at a time per call; safe to share between threads. Redirects are never followed.
class HTTPTransport {
 public:
  virtual ~HTTPTransport() = default;

  /// Throws `TransportError`, or `Cancelled` within 200 ms of the token's stop. Every status is an answer, not an error.
  virtual HTTPResponse send(const HTTPRequest& request, const std::stop_token& stop) = 0;

  /// As `send`, but the body of a 2xx answer goes to `onBody` piece by piece as it arrives, on the caller's thread, and the response's own
  /// body stays empty. The body of any other status is gathered in the response. What `onBody` throws ends the transfer and is thrown on.
  virtual HTTPResponse stream(const HTTPRequest& request, const std::function<void(std::string_view)>& onBody, const std::stop_token& stop) = 0;
};

}  // namespace halvo
