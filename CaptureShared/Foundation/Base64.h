#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "CaptureShared/Foundation/SecretBytes.h"

/// Standard base64 with padding, on one line.
namespace halvo::Base64 {

std::string encode(std::string_view bytes);
SecretBytes encodeSecret(std::string_view bytes);
/// Absent for anything that is not whole groups of four.
std::optional<SecretBytes> decode(std::string_view text);

}  // namespace halvo::Base64
