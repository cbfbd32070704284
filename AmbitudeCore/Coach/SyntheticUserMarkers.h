#pragma once

#include <string>
#include <string_view>

/// Lines of the older road that look like a user turn but are the system's.
namespace halvo::SyntheticUserMarkers {

inline constexpr std::string_view noReplyTimeoutSource = "no_reply_timeout";

/// "[system: SOURCE] TEXT".
inline std::string wrap(std::string_view source, std::string_view text) {
  return "[system: " + std::string(source) + "] " + std::string(text);
}
inline bool isFrom(std::string_view text, std::string_view source) { return text.starts_with("[system: " + std::string(source) + "]"); }
inline bool isNoReplyTimeoutMarker(std::string_view text) { return isFrom(text, noReplyTimeoutSource); }

}  // namespace halvo::SyntheticUserMarkers
