#include "CaptureShared/Recording/ChunkCipher.h"

#include <algorithm>

#include <openssl/crypto.h>
#include <openssl/rand.h>

#include "CaptureShared/Recording/VideoEncryptionError.h"
#include "CaptureShared/Recording/VideoEncryptionFormat.h"

namespace halvo {
namespace {

using namespace VideoEncryptionFormat;

unsigned char* raw(char* bytes) { return reinterpret_cast<unsigned char*>(bytes); }
const unsigned char* raw(const char* bytes) { return reinterpret_cast<const unsigned char*>(bytes); }

[[noreturn]] void fail(VideoEncryptionError::Kind kind) { throw VideoEncryptionError(kind); }

}  // namespace

ChunkCipher::ChunkCipher(const SymmetricKey& key, Direction direction) : context_(EVP_CIPHER_CTX_new()) {
  const bool isSealing = direction == Direction::seal;
  if (!context_ || EVP_CipherInit_ex2(context_.get(), EVP_aes_256_gcm(), raw(key.bytes().data()), nullptr, isSealing, nullptr) != 1)
    fail(isSealing ? VideoEncryptionError::Kind::sealingFailed : VideoEncryptionError::Kind::authenticationFailed);
}

std::span<char> ChunkCipher::room(std::size_t length) {
  if (roomSize_ < length) {
    roomSize_ = std::max(length, std::min(2 * roomSize_, maxPlausibleCombinedLength));
    room_.reset();
    room_ = std::make_unique_for_overwrite<char[]>(roomSize_);
  }
  return {room_.get(), length};
}

void ChunkCipher::seal(std::string_view plaintext, std::span<char> box) {
  auto* nonce = raw(box.data());
  auto* ciphertext = nonce + nonceLength;
  auto* tag = ciphertext + plaintext.size();
  int length = 0;
  if (RAND_bytes(nonce, nonceLength) != 1 || EVP_EncryptInit_ex2(context_.get(), nullptr, nullptr, nonce, nullptr) != 1 ||
      EVP_EncryptUpdate(context_.get(), ciphertext, &length, raw(plaintext.data()), static_cast<int>(plaintext.size())) != 1 ||
      EVP_EncryptFinal_ex(context_.get(), tag, &length) != 1 ||
      EVP_CIPHER_CTX_ctrl(context_.get(), EVP_CTRL_AEAD_GET_TAG, tagLength, tag) != 1)
    fail(VideoEncryptionError::Kind::sealingFailed);
}

std::string_view ChunkCipher::open(std::span<char> box) {
  auto* nonce = raw(box.data());
  auto* text = nonce + nonceLength;
  const auto size = box.size() - boxOverhead;
  int length = 0;
  if (EVP_DecryptInit_ex2(context_.get(), nullptr, nullptr, nonce, nullptr) != 1 ||
      EVP_CIPHER_CTX_ctrl(context_.get(), EVP_CTRL_AEAD_SET_TAG, tagLength, text + size) != 1 ||
      EVP_DecryptUpdate(context_.get(), text, &length, text, static_cast<int>(size)) != 1 ||
      EVP_DecryptFinal_ex(context_.get(), text + size, &length) != 1) {
    OPENSSL_cleanse(box.data(), box.size());  // deciphered, but by nobody vouched for
    fail(VideoEncryptionError::Kind::authenticationFailed);
  }
  return {box.data() + nonceLength, size};
}

}  // namespace halvo
