#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include <openssl/crypto.h>

namespace halvo {

/// Overwrites memory before giving it back.
template <class T>
struct WipingAllocator {
  using value_type = T;
  WipingAllocator() = default;
  template <class U>
  WipingAllocator(const WipingAllocator<U>&) noexcept {}
  T* allocate(std::size_t count) { return std::allocator<T>().allocate(count); }
  void deallocate(T* memory, std::size_t count) noexcept {
    OPENSSL_cleanse(memory, count * sizeof(T));
    std::allocator<T>().deallocate(memory, count);
  }
  bool operator==(const WipingAllocator&) const = default;
};

/// Bytes of a secret, wiped with their owner. Not a string: that keeps a short text where no allocator sees it.
using SecretBytes = std::vector<char, WipingAllocator<char>>;

inline std::string_view view(const SecretBytes& bytes) { return {bytes.data(), bytes.size()}; }
inline void append(SecretBytes& bytes, std::string_view more) { bytes.insert(bytes.end(), more.begin(), more.end()); }

/// Takes the text at `key` out of a JSON text and blanks it there, so that a JSON reader, whose memory nobody wipes, may have the rest.
/// Only for texts without escapes, as base64 is; absent when there is no such member.
std::optional<SecretBytes> takeSecretMember(SecretBytes& json, std::string_view key);

}  // namespace halvo
