#include "CaptureShared/Net/URLParts.h"

#include <algorithm>

#include <fmt/format.h>

#include "CaptureShared/Foundation/Text.h"

namespace halvo {
namespace {

bool isAlpha(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool isDigit(char c) { return c >= '0' && c <= '9'; }

int hexDigit(char c) {
  if (isDigit(c)) return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

std::optional<URLParts> URLParts::parse(std::string_view text) {
  const bool clean = std::all_of(text.begin(), text.end(), [](char c) { return c > ' ' && c < 0x7F && c != '\\'; });
  const auto colon = text.find("://");
  if (!clean || colon == std::string_view::npos || colon == 0 || !isAlpha(text[0])) return std::nullopt;

  URLParts parts;
  for (const char c : text.substr(0, colon)) {
    if (!isAlpha(c) && !isDigit(c) && c != '+' && c != '-' && c != '.') return std::nullopt;
    parts.scheme += static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
  }

  auto rest = text.substr(colon + 3);
  if (const auto hash = rest.find('#'); hash != std::string_view::npos) {
    parts.fragment = std::string(rest.substr(hash + 1));
    rest = rest.substr(0, hash);
  }
  if (const auto mark = rest.find('?'); mark != std::string_view::npos) {
    parts.query = std::string(rest.substr(mark + 1));
    rest = rest.substr(0, mark);
  }
  auto authority = rest;
  if (const auto slash = rest.find('/'); slash != std::string_view::npos) {
    parts.path = std::string(rest.substr(slash));
    authority = rest.substr(0, slash);
  }
  if (const auto at = authority.rfind('@'); at != std::string_view::npos) {
    const auto login = authority.substr(0, at);
    const auto split = login.find(':');
    parts.user = std::string(login.substr(0, split));
    if (split != std::string_view::npos) parts.password = std::string(login.substr(split + 1));
    authority = authority.substr(at + 1);
  }
  auto afterHost = std::string_view();
  if (authority.starts_with('[')) {
    const auto close = authority.find(']');
    if (close == std::string_view::npos) return std::nullopt;
    parts.host = std::string(authority.substr(1, close - 1));
    afterHost = authority.substr(close + 1);
    if (!afterHost.empty() && afterHost[0] != ':') return std::nullopt;
  } else {
    const auto split = std::min(authority.find(':'), authority.size());
    parts.host = std::string(authority.substr(0, split));
    afterHost = authority.substr(split);
  }
  if (!afterHost.empty()) parts.port = std::string(afterHost.substr(1));
  return parts;
}

std::optional<int> URLParts::portNumber() const {
  if (!port || port->empty() || port->size() > 5 || !std::all_of(port->begin(), port->end(), isDigit)) return std::nullopt;
  const int number = std::stoi(*port);
  if (number < 1 || number > 65535) return std::nullopt;
  return number;
}

bool URLParts::isLoopback() const { return host == "127.0.0.1" || host == "::1" || Text::equalsIgnoringCase(host, "localhost"); }

std::string URLParts::requestTarget() const {
  auto target = path.empty() ? std::string("/") : path;
  if (query) target += "?" + *query;
  return target;
}

std::string percentEncoded(std::string_view bytes) {
  std::string out;
  for (const char c : bytes) {
    if (isAlpha(c) || isDigit(c) || c == '-' || c == '.' || c == '_' || c == '~')
      out += c;
    else
      out += fmt::format("%{:02X}", static_cast<unsigned char>(c));
  }
  return out;
}

std::optional<std::string> percentDecoded(std::string_view text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      out += text[i];
      continue;
    }
    if (i + 2 >= text.size()) return std::nullopt;
    const int high = hexDigit(text[i + 1]), low = hexDigit(text[i + 2]);
    if (high < 0 || low < 0) return std::nullopt;
    out += static_cast<char>(high * 16 + low);
    i += 2;
  }
  return out;
}

std::string joinedURL(std::string_view base, std::string_view path) {
  while (base.ends_with('/')) base.remove_suffix(1);
  while (path.starts_with('/')) path.remove_prefix(1);
  return fmt::format("{}/{}", base, path);
}

}  // namespace halvo
