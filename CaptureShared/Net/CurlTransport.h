#pragma once

#include "CaptureShared/Net/HTTPTransport.h"

namespace halvo {

/// HTTP over TCP and TLS. Plain http only to a loopback host, and then past any proxy the environment names; https anywhere, its
/// certificate verified. Redirects are never followed. Each call is a connection of its own.
class CurlTransport : public HTTPTransport {
 public:
  CurlTransport();

  HTTPResponse send(const HTTPRequest& request, const std::stop_token& stop) override;
  HTTPResponse stream(const HTTPRequest& request, const std::function<void(std::string_view)>& onBody,
                      const std::stop_token& stop) override;
};

}  // namespace halvo
