#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "CaptureShared/Foundation/Environment.h"
#include "CaptureShared/Net/HTTPTransport.h"

namespace halvo {

/// Sends a request the way its URL's scheme asks for. Filled before it is shared, read-only from then on.
class HTTPTransportRouter : public HTTPTransport {
 public:
  /// What every program uses: "http" and "https" over TCP, "http+unix" over a socket. A value of SSL_CERT_FILE in the environment names the
  /// file of certificates to trust; without one it is the system's.
  static std::unique_ptr<HTTPTransportRouter> standard(const Environment& environment = {});

  void add(std::string_view scheme, std::shared_ptr<HTTPTransport> transport);

  /// Throws `TransportError` for a URL that cannot be read or whose scheme nobody takes.
  HTTPResponse send(const HTTPRequest& request, const std::stop_token& stop) override;
  HTTPResponse stream(const HTTPRequest& request, const std::function<void(std::string_view)>& onBody,
                      const std::stop_token& stop) override;

 private:
  HTTPTransport& transportFor(const HTTPRequest& request) const;

  std::map<std::string, std::shared_ptr<HTTPTransport>, std::less<>> transports_;
};

}  // namespace halvo
