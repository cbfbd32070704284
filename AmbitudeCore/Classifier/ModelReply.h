#pragma once

#include <string>
#include <string_view>

/// A model's own words in an error or a log line.
namespace halvo::ModelReply {

inline constexpr std::size_t excerptCap = 200;  ///< characters

/// On one line, every identifier and secret taken out, then cut.
std::string excerpt(std::string_view reply);

}  // namespace halvo::ModelReply
