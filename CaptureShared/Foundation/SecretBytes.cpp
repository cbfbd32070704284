#include "CaptureShared/Foundation/SecretBytes.h"

#include <algorithm>
#include <string>

namespace halvo {

std::optional<SecretBytes> takeSecretMember(SecretBytes& json, std::string_view key) {
  const auto text = view(json);
  // A quote inside a JSON text has a backslash in front of it, so this can only be the key, or a value, which no colon follows.
  const auto quoted = '"' + std::string(key) + '"';
  for (auto at = text.find(quoted); at != text.npos; at = text.find(quoted, at + 1)) {
    const auto colon = text.find_first_not_of(" \t\r\n", at + quoted.size());
    if (colon == text.npos || text[colon] != ':') continue;
    const auto open = text.find_first_not_of(" \t\r\n", colon + 1);
    if (open == text.npos || text[open] != '"') return std::nullopt;
    const auto close = text.find_first_of("\"\\", open + 1);
    if (close == text.npos || text[close] == '\\') return std::nullopt;
    SecretBytes secret(text.begin() + static_cast<std::ptrdiff_t>(open) + 1, text.begin() + static_cast<std::ptrdiff_t>(close));
    std::fill_n(json.begin() + static_cast<std::ptrdiff_t>(open) + 1, secret.size(), '.');
    return secret;
  }
  return std::nullopt;
}

}  // namespace halvo
