#pragma once

#include <array>
#include <span>
#include <string_view>

namespace halvo {

/// A 256-bit key, wiped with its owner.
class SymmetricKey {
 public:
  static constexpr std::size_t size = 32;

  explicit SymmetricKey(std::span<const char, size> bytes);
  SymmetricKey(const SymmetricKey&) = default;
  SymmetricKey& operator=(const SymmetricKey&) = default;
  ~SymmetricKey();
  /// Throws `std::runtime_error` when the system has no randomness.
  static SymmetricKey random();

  std::string_view bytes() const { return {bytes_.data(), size}; }
  /// Takes the same time wherever the keys differ.
  bool operator==(const SymmetricKey& other) const;

 private:
  SymmetricKey() = default;
  std::array<char, size> bytes_{};
};

}  // namespace halvo
