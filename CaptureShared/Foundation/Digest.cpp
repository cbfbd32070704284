#include "CaptureShared/Foundation/Digest.h"

#include <stdexcept>

#include <fmt/format.h>
#include <openssl/evp.h>

namespace halvo::Digest {
namespace {

EVP_MD_CTX* contextOf(void* state) { return static_cast<EVP_MD_CTX*>(state); }

void require(bool worked) {
  if (!worked) throw std::runtime_error("SHA-256 failed");
}

std::string hexOf(const unsigned char* digest, unsigned size) {
  std::string hex;
  for (unsigned i = 0; i < size; ++i) hex += fmt::format("{:02x}", digest[i]);
  return hex;
}

}  // namespace

std::string sha256Hex(std::string_view bytes) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned size = 0;
  require(EVP_Digest(bytes.data(), bytes.size(), digest, &size, EVP_sha256(), nullptr) == 1);
  return hexOf(digest, size);
}

void SHA256::Free::operator()(void* state) const { EVP_MD_CTX_free(contextOf(state)); }

SHA256::SHA256() : state_(EVP_MD_CTX_new()) { require(state_ && EVP_DigestInit_ex(contextOf(state_.get()), EVP_sha256(), nullptr) == 1); }

void SHA256::update(std::string_view bytes) { require(EVP_DigestUpdate(contextOf(state_.get()), bytes.data(), bytes.size()) == 1); }

std::string SHA256::hex() const {
  // Finishing a context ends it, so a copy is finished.
  const std::unique_ptr<void, Free> copy(EVP_MD_CTX_new());
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned size = 0;
  require(copy && EVP_MD_CTX_copy_ex(contextOf(copy.get()), contextOf(state_.get())) == 1 &&
          EVP_DigestFinal_ex(contextOf(copy.get()), digest, &size) == 1);
  return hexOf(digest, size);
}

}  // namespace halvo::Digest
