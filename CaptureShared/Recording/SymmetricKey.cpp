#include "CaptureShared/Recording/SymmetricKey.h"

#include <algorithm>
#include <stdexcept>

#include <openssl/crypto.h>
#include <openssl/rand.h>

namespace halvo {

SymmetricKey::SymmetricKey(std::span<const char, size> bytes) { std::copy(bytes.begin(), bytes.end(), bytes_.begin()); }

SymmetricKey::~SymmetricKey() { OPENSSL_cleanse(bytes_.data(), size); }

SymmetricKey SymmetricKey::random() {
  SymmetricKey key;
  if (RAND_priv_bytes(reinterpret_cast<unsigned char*>(key.bytes_.data()), size) != 1) throw std::runtime_error("no randomness for a key");
  return key;
}

bool SymmetricKey::operator==(const SymmetricKey& other) const { return CRYPTO_memcmp(bytes_.data(), other.bytes_.data(), size) == 0; }

}  // namespace halvo
