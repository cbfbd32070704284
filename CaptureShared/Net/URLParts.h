#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace halvo {

/// A URL cut into its parts, nothing decoded and nothing rewritten. A URL library would turn "127.1" into "127.0.0.1" and refuse a
/// socket path as a host; where the spelling of a host decides who is trusted, the text as it was written is what counts.
struct URLParts {
  std::string scheme = {};  ///< lower case
  std::optional<std::string> user = {}, password = {};
  std::string host = {};                 ///< as written; IPv6 without its brackets
  std::optional<std::string> port = {};  ///< the text behind the host's colon, digits or not; absent without a colon
  std::string path = {};                 ///< with its leading "/", or empty
  std::optional<std::string> query = {}, fragment = {};

  /// Absent for anything without "scheme://", with a blank, a control character, a backslash or a byte outside ASCII, or with an open
  /// bracket.
  static std::optional<URLParts> parse(std::string_view text);

  /// The port as a number, 1 to 65535; absent when it is missing or anything else.
  std::optional<int> portNumber() const;
  /// True for 127.0.0.1, ::1 and localhost.
  bool isLoopback() const;
  /// Path and query as a request line carries them; "/" when the path is empty.
  std::string requestTarget() const;

  bool operator==(const URLParts&) const = default;
};

/// "%41" for every byte but letters, digits, "-", ".", "_" and "~".
std::string percentEncoded(std::string_view bytes);
/// The reverse; absent for a "%" without two hexadecimal digits behind it.
std::optional<std::string> percentDecoded(std::string_view text);

/// `base` with `path` behind exactly one slash.
std::string joinedURL(std::string_view base, std::string_view path);

}  // namespace halvo
