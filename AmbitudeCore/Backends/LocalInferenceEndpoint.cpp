#include "AmbitudeCore/Backends/LocalInferenceEndpoint.h"

#include <cstdio>
#include <cstdlib>

#include <fmt/format.h>
#include <sysexits.h>

#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Foundation/UserFolders.h"
#include "CaptureShared/Net/URLParts.h"
#include "CaptureShared/Net/UnixSocketHTTPProtocol.h"

namespace halvo::LocalInferenceEndpoint {
namespace {

std::string_view words(ResolutionError::Kind kind) {
  switch (kind) {
    case ResolutionError::Kind::malformed:
      return " is not a valid base URL (unparseable, carries a user/password, or has an out-of-range port)";
    case ResolutionError::Kind::notLoopback:
      return " is not 127.0.0.1 — local-only inference calls (classifier, window description, estimate extraction, the pattern-break "
             "check, "
             "embeddings) must stay on this machine";
    case ResolutionError::Kind::notIPv4Loopback:
      return " must spell the host as 127.0.0.1 — `localhost` resolves to IPv6 ::1 first, where another local account can listen in place "
             "of "
             "the IPv4-only model server (#986)";
    case ResolutionError::Kind::unsupportedScheme:
      return " must be an http:// URL";
    case ResolutionError::Kind::hasPath:
      return " must be a base URL (scheme, host, port) with no path — callers append their own path (v1/chat/completions, for example)";
  }
  return {};
}

}  // namespace

std::filesystem::path socketDirectory(const Environment& environment) { return UserFolders::supportDir(environment) / "llama"; }

std::filesystem::path socketPath(const Environment& environment) { return socketDirectory(environment) / "llama.sock"; }

std::string defaultBaseURL(const Environment& environment) { return UnixSocketHTTPProtocol::baseURL(socketPath(environment)); }

bool isUnixSocket(std::string_view url) {
  const auto parts = URLParts::parse(url);
  return parts && parts->scheme == UnixSocketHTTPProtocol::scheme;
}

ResolutionError::ResolutionError(Kind kind, std::string value)
    : std::runtime_error(fmt::format("{}=\"{}\"{}", envVar, value, words(kind))), kind_(kind), value_(std::move(value)) {}

std::string resolveOrThrow(const Environment& environment) {
  const std::string text(Text::trim(halvo::value(environment, envVar).value_or("")));
  if (text.empty()) return defaultBaseURL(environment);

  using Kind = ResolutionError::Kind;
  const auto parts = URLParts::parse(text);
  if (!parts || parts->host.empty()) throw ResolutionError(Kind::malformed, text);
  if (Text::equalsIgnoringCase(parts->host, "localhost")) throw ResolutionError(Kind::notIPv4Loopback, text);
  if (parts->host != "127.0.0.1") throw ResolutionError(Kind::notLoopback, text);
  if (parts->scheme != "http") throw ResolutionError(Kind::unsupportedScheme, text);
  if (!parts->path.empty() && parts->path != "/") throw ResolutionError(Kind::hasPath, text);
  if (parts->query || parts->fragment || parts->user || parts->password || (parts->port && !parts->portNumber()))
    throw ResolutionError(Kind::malformed, text);
  return text;
}

std::string resolve(const Environment& environment) {
  try {
    return resolveOrThrow(environment);
  } catch (const ResolutionError& error) {
    fmt::print(stderr, "{}\n", error.what());
    std::exit(EX_CONFIG);
  }
}

}  // namespace halvo::LocalInferenceEndpoint
