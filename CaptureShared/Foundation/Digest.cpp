#include "CaptureShared/Foundation/Digest.h"

#include <stdexcept>

#include <fmt/format.h>
#include <openssl/evp.h>

namespace halvo::Digest {

std::string sha256Hex(std::string_view bytes) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned size = 0;
  if (EVP_Digest(bytes.data(), bytes.size(), digest, &size, EVP_sha256(), nullptr) != 1) throw std::runtime_error("SHA-256 failed");
  std::string hex;
  for (unsigned i = 0; i < size; ++i) hex += fmt::format("{:02x}", digest[i]);
  return hex;
}

}  // namespace halvo::Digest
