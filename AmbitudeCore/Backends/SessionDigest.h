#pragma once

#include <string>
#include <string_view>

/// A stable name for a text, short enough for a header.
namespace halvo::SessionDigest {

/// The first 32 hexadecimal digits of the text's SHA-256, lower case.
std::string of(std::string_view text);

}  // namespace halvo::SessionDigest
