#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>

#include "CaptureShared/Foundation/Environment.h"

/// Where the local inference server is. Whatever it is sent is the most private text there is, so only this machine is ever an answer.
namespace halvo::LocalInferenceEndpoint {

inline constexpr std::string_view envVar = "AMBITCAP_LOCAL_INFERENCE_ENDPOINT";
inline constexpr std::string_view tcpBaseURLString = "http://127.0.0.1:11477";
inline constexpr std::string_view legacyOllamaBaseURL = "http://127.0.0.1:11434";

/// "Library/Application Support/AmbitCapture/llama" under the home folder.
std::filesystem::path socketDirectory(const Environment& environment);
/// "llama.sock" in it.
std::filesystem::path socketPath(const Environment& environment);
/// The "http+unix" base URL of `socketPath`.
std::string defaultBaseURL(const Environment& environment);
bool isUnixSocket(std::string_view url);

/// A configured address that is refused; `what()` begins with the key and the value.
class ResolutionError : public std::runtime_error {
 public:
  enum class Kind {
    malformed,          ///< no base URL: unreadable, with a login, a query or a fragment, or a port outside 1 to 65535
    notLoopback,        ///< another machine
    notIPv4Loopback,    ///< "localhost", which may be resolved to another address than the server's
    unsupportedScheme,  ///< not http
    hasPath             ///< callers append their own
  };
  ResolutionError(Kind kind, std::string value);
  Kind kind() const { return kind_; }
  const std::string& value() const { return value_; }

 private:
  Kind kind_;
  std::string value_;
};

/// The configured base URL, trimmed; `defaultBaseURL` when the key is absent or blank. Throws `ResolutionError`.
std::string resolveOrThrow(const Environment& environment);

/// For a program's start: the same, but a refused address ends the program there, with the reason on standard error and status 78.
std::string resolve(const Environment& environment);

}  // namespace halvo::LocalInferenceEndpoint
