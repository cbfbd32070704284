#pragma once

#include <memory>
#include <span>
#include <string_view>

#include <openssl/evp.h>

#include "CaptureShared/Recording/SymmetricKey.h"

namespace halvo {

/// Seals or opens one chunk after another with one key, and has the memory for one box.
class ChunkCipher {
 public:
  enum class Direction { seal, open };
  /// Throws `VideoEncryptionError` (sealingFailed or authenticationFailed) when the cipher can't be set up.
  ChunkCipher(const SymmetricKey& key, Direction direction);

  /// Room for a box of `length` bytes, at most the largest plausible one. What was there before is gone.
  std::span<char> room(std::size_t length);

  /// Nonce, ciphertext and tag into `box`, which is 28 bytes longer than the plaintext. Throws `VideoEncryptionError::sealingFailed`.
  void seal(std::string_view plaintext, std::span<char> box);
  /// The plaintext, in the box's own memory, and only when its tag is right. Throws `VideoEncryptionError::authenticationFailed`.
  std::string_view open(std::span<char> box);

 private:
  struct Free {
    void operator()(EVP_CIPHER_CTX* context) const { EVP_CIPHER_CTX_free(context); }  // wipes the key's schedule
  };
  std::unique_ptr<EVP_CIPHER_CTX, Free> context_;
  std::unique_ptr<char[]> room_;
  std::size_t roomSize_ = 0;
};

}  // namespace halvo
