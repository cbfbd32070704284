#pragma once

#include <array>
#include <cstdint>
#include <span>

/// 32-bit numbers as they lie in a recording.
namespace halvo::LittleEndian {

inline std::array<char, 4> bytes(std::uint32_t number) {
  return {static_cast<char>(number), static_cast<char>(number >> 8), static_cast<char>(number >> 16), static_cast<char>(number >> 24)};
}

inline std::uint32_t number(std::span<const char, 4> bytes) {
  std::uint32_t number = 0;
  for (int i = 3; i >= 0; --i) number = number << 8 | static_cast<unsigned char>(bytes[static_cast<std::size_t>(i)]);
  return number;
}

}  // namespace halvo::LittleEndian
