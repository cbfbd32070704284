#pragma once

#include <cstdint>
#include <optional>

#include "CaptureShared/Foundation/SecretBytes.h"
#include "CaptureShared/Recording/SymmetricKey.h"

/// A key as its item holds it: the JSON object {"createdAt": ISO 8601, "keyBase64": standard base64 of the 32 bytes}.
namespace halvo::StoredKey {

SecretBytes encode(const SymmetricKey& key, std::int64_t createdAtMs);
/// Absent unless there are exactly 32 bytes.
std::optional<SymmetricKey> decode(SecretBytes text);

}  // namespace halvo::StoredKey
