#include "CaptureShared/Provisioning/ModelDownloadHost.h"

#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Net/URLParts.h"

namespace halvo::ModelDownloadHost {
namespace {

constexpr std::string_view builtIn = HALVO_MODEL_HOST;

bool isAllowed(const URLParts& parts) {
  if (parts.host.empty() || parts.user || parts.password || (parts.port && !parts.portNumber())) return false;
  return parts.scheme == "https" || (parts.scheme == "http" && parts.isLoopback());
}

}  // namespace

std::optional<std::string> resolve(const Environment& environment) {
  const auto named = value(environment, envVar);
  auto text = Text::trim(named && !Text::isBlank(*named) ? std::string_view(*named) : builtIn);
  while (text.ends_with('/')) text.remove_suffix(1);
  const auto parts = URLParts::parse(text);
  if (!parts || !isAllowed(*parts) || parts->query || parts->fragment) return std::nullopt;
  return std::string(text);
}

std::optional<std::string> redirect(std::string_view url, std::string_view location) {
  const auto from = URLParts::parse(url);
  if (!from || location.empty()) return std::nullopt;
  const auto authority = url.substr(0, url.find_first_of("/?#", url.find("://") + 3));
  std::string target;
  if (location.find("://") != std::string_view::npos && location.find("://") < location.find_first_of("/?#"))
    target = location;
  else if (location.starts_with("//"))
    target = from->scheme + ":" + std::string(location);
  else if (location.starts_with('/'))
    target = std::string(authority) + std::string(location);
  else
    target = std::string(authority) + from->path.substr(0, from->path.rfind('/')) + "/" + std::string(location);
  const auto to = URLParts::parse(target);
  if (!to || !isAllowed(*to) || (to->isLoopback() && !from->isLoopback())) return std::nullopt;
  return target;
}

}  // namespace halvo::ModelDownloadHost
