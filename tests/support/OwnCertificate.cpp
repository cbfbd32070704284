#include "tests/support/OwnCertificate.h"

#include <cstdio>
#include <stdexcept>

#include <openssl/pem.h>
#include <openssl/x509v3.h>

namespace halvo::test {
namespace {

void require(bool done) {
  if (!done) throw std::runtime_error("the certificate could not be made");
}

void addExtension(X509* certificate, int kind, const char* value) {
  X509V3_CTX context;
  X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
  const std::unique_ptr<X509_EXTENSION, decltype(&X509_EXTENSION_free)> made(X509V3_EXT_conf_nid(nullptr, &context, kind, value),
                                                                             X509_EXTENSION_free);
  require(made && X509_add_ext(certificate, made.get(), -1) == 1);
}

}  // namespace

OwnCertificate OwnCertificate::make() {
  constexpr long dayInSec = 86400;
  const std::shared_ptr<EVP_PKEY> key(EVP_EC_gen("P-256"), EVP_PKEY_free);
  const std::shared_ptr<X509> certificate(X509_new(), X509_free);
  require(key && certificate);
  auto* raw = certificate.get();
  X509_set_version(raw, X509_VERSION_3);
  ASN1_INTEGER_set(X509_get_serialNumber(raw), 1);
  X509_gmtime_adj(X509_getm_notBefore(raw), -dayInSec);
  X509_gmtime_adj(X509_getm_notAfter(raw), dayInSec);
  X509_set_pubkey(raw, key.get());
  auto* name = X509_get_subject_name(raw);
  X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>("loopback"), -1, -1, 0);
  X509_set_issuer_name(raw, name);
  addExtension(raw, NID_basic_constraints, "critical,CA:TRUE");
  addExtension(raw, NID_subject_alt_name, "IP:127.0.0.1,DNS:localhost");
  require(X509_sign(raw, key.get(), EVP_sha256()) > 0);
  return {.key = key, .certificate = certificate};
}

void OwnCertificate::writePEM(const std::filesystem::path& file) const {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> out(std::fopen(file.c_str(), "w"), std::fclose);
  require(out && PEM_write_X509(out.get(), certificate.get()) == 1);
}

}  // namespace halvo::test
