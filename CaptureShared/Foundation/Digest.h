#pragma once

#include <string>
#include <string_view>

namespace halvo::Digest {

/// SHA-256 as 64 lower-case hexadecimal digits.
std::string sha256Hex(std::string_view bytes);

}  // namespace halvo::Digest
