#pragma once

#include <filesystem>
#include <optional>

#include "CaptureShared/Net/HTTPTransport.h"

namespace halvo {

/// HTTP over TCP and TLS. Plain http only to a loopback host, and then past any proxy the environment names; https anywhere, its
/// certificate verified. Redirects are never followed. Each call is a connection of its own.
class CurlTransport : public HTTPTransport {
 public:
  /// `certificateFile`: PEM certificates to trust in place of the system's file of them; whatever it is, every peer is verified.
  explicit CurlTransport(std::optional<std::filesystem::path> certificateFile = {});

  HTTPResponse send(const HTTPRequest& request, const std::stop_token& stop) override;
  HTTPResponse stream(const HTTPRequest& request, const std::function<void(std::string_view)>& onBody,
                      const std::stop_token& stop) override;

 private:
  std::optional<std::filesystem::path> certificateFile_;
};

}  // namespace halvo
