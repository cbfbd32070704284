#include "CaptureShared/Recording/StoredKey.h"

#include "CaptureShared/Foundation/Base64.h"
#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Foundation/JSONValue.h"

namespace halvo::StoredKey {

SecretBytes encode(const SymmetricKey& key, std::int64_t createdAtMs) {
  SecretBytes text;
  append(text, R"({"createdAt":")");
  append(text, ISO8601::utcSeconds(createdAtMs));
  append(text, R"(","keyBase64":")");
  append(text, view(Base64::encodeSecret(key.bytes())));
  append(text, "\"}");
  return text;
}

std::optional<SymmetricKey> decode(SecretBytes text) {
  const auto coded = takeSecretMember(text, "keyBase64");
  const auto rest = JSONValue::parse(view(text));
  const auto* object = rest ? rest->objectValue() : nullptr;
  if (!coded || !object || !object->string("createdAt")) return std::nullopt;
  const auto bytes = Base64::decode(view(*coded));
  if (!bytes || bytes->size() != SymmetricKey::size) return std::nullopt;
  return SymmetricKey(std::span<const char, SymmetricKey::size>(bytes->data(), SymmetricKey::size));
}

}  // namespace halvo::StoredKey
