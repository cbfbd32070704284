#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace halvo::Digest {

/// SHA-256 as 64 lower-case hexadecimal digits.
std::string sha256Hex(std::string_view bytes);

/// SHA-256 of bytes that come piece by piece.
class SHA256 {
 public:
  SHA256();
  void update(std::string_view bytes);
  /// The digest so far, as 64 lower-case hexadecimal digits; more may follow.
  std::string hex() const;

 private:
  struct Free {
    void operator()(void* state) const;
  };
  std::unique_ptr<void, Free> state_;
};

}  // namespace halvo::Digest
