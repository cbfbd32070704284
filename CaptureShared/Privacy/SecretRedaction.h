#pragma once

#include <string>
#include <string_view>

namespace halvo {
struct RedactionReport;
}

/// Keys and tokens, replaced before a text reaches a log, an error or a request dump.
namespace halvo::SecretRedaction {

inline constexpr std::string_view token = "[redacted]";

/// Stands in place of a whole text that a pattern gave up on (`RegexLimitExceeded`): what could not be checked is never passed on.
inline constexpr std::string_view uncheckedText = "[text withheld: it could not be checked]";

/// The text with every secret-shaped piece replaced by `token`. A text that the patterns give up on is replaced as a whole by
/// `uncheckedText`. Bytes that are not UTF-8 become U+FFFD. Redacting twice changes nothing.
std::string redact(std::string_view text);

/// As above; each piece counts as one `credential` in the report, and so does a text withheld as a whole.
std::string redact(std::string_view text, RedactionReport& report);

}  // namespace halvo::SecretRedaction
