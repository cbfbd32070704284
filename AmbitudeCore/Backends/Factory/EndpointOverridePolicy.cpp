#include "AmbitudeCore/Backends/Factory/EndpointOverridePolicy.h"

#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Net/URLParts.h"

namespace halvo::EndpointOverridePolicy {

std::optional<std::string> validated(std::string_view value) {
  const auto url = Text::trim(value);
  const auto parts = URLParts::parse(url);
  if (!parts || parts->host.empty() || parts->user || parts->password || (parts->port && !parts->portNumber())) return std::nullopt;
  if (parts->scheme != "https" && !(parts->scheme == "http" && parts->isLoopback())) return std::nullopt;
  return std::string(url);
}

bool isLoopback(std::string_view url) {
  const auto parts = URLParts::parse(url);
  return parts && parts->isLoopback();
}

std::string refusalReason(std::string_view, std::string_view key) {
  // The value itself stays out of the log: it may hold a key.
  return std::string(key) + " ignored: an override must be https, or plain http only to a loopback host (#993)";
}

std::string endpoint(const std::string& url, std::string_view defaultPath) {
  const auto parts = URLParts::parse(url);
  return parts && (parts->path.empty() || parts->path == "/") ? joinedURL(url, defaultPath) : url;
}

}  // namespace halvo::EndpointOverridePolicy
