#include "CaptureShared/Foundation/Base64.h"

#include <openssl/evp.h>

namespace halvo::Base64 {
namespace {

const unsigned char* bytesOf(std::string_view text) { return reinterpret_cast<const unsigned char*>(text.data()); }

template <class Text>
Text encodeAs(std::string_view bytes) {
  Text text(4 * ((bytes.size() + 2) / 3) + 1, '\0');  // the encoder ends it with a zero
  const int length = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), bytesOf(bytes), static_cast<int>(bytes.size()));
  text.resize(static_cast<std::size_t>(length));
  return text;
}

}  // namespace

std::string encode(std::string_view bytes) { return encodeAs<std::string>(bytes); }
SecretBytes encodeSecret(std::string_view bytes) { return encodeAs<SecretBytes>(bytes); }

std::optional<SecretBytes> decode(std::string_view text) {
  constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  const auto last = text.find_last_not_of('=');
  const auto padding = text.size() - (last == text.npos ? 0 : last + 1);
  if (text.size() % 4 != 0 || padding > 2 || text.substr(0, text.size() - padding).find_first_not_of(alphabet) != text.npos) return std::nullopt;
  SecretBytes bytes(text.size() / 4 * 3);
  if (EVP_DecodeBlock(reinterpret_cast<unsigned char*>(bytes.data()), bytesOf(text), static_cast<int>(text.size())) < 0) return std::nullopt;
  bytes.resize(bytes.size() - padding);
  return bytes;
}

}  // namespace halvo::Base64
