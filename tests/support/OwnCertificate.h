#pragma once

#include <filesystem>
#include <memory>

#include <openssl/evp.h>
#include <openssl/x509.h>

namespace halvo::test {

/// A certificate for 127.0.0.1 and localhost, signed by itself, good for a day. Made anew each time; its key never leaves the process.
struct OwnCertificate {
  std::shared_ptr<EVP_PKEY> key;
  std::shared_ptr<X509> certificate;

  /// Throws `std::runtime_error`.
  static OwnCertificate make();
  /// The certificate alone, as a file to trust. Throws `std::runtime_error`.
  void writePEM(const std::filesystem::path& file) const;
};

}  // namespace halvo::test
