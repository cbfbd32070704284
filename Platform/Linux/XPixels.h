#pragma once

#include <cstdint>
#include <span>

#include "Platform/Linux/PNGWriter.h"

/// Turns an X server's pixels into red, green and blue. Pure.
namespace halvo::XPixels {

/// How a server lays out the pixels of a picture.
struct Layout {
  std::uint32_t width = 0, height = 0;
  std::uint32_t bitsPerPixel = 0;  ///< 16, 24 or 32
  std::uint32_t padBits = 32;      ///< rows begin at multiples of this
  bool lowByteFirst = true;
  std::uint32_t red = 0, green = 0, blue = 0;  ///< which bits of a pixel hold each colour
};

/// Bytes of one row, padding included.
std::size_t rowBytes(const Layout& layout);

/// Throws `std::runtime_error` for a pixel size that isn't 16, 24 or 32 bits, a colour without bits, or fewer bytes than the sides need.
PNGWriter::RGBImage toRGB(const Layout& layout, std::span<const std::uint8_t> bytes);

/// The same as four bytes a pixel (blue, green, red, unused) into `out`, which holds exactly the picture. Throws like `toRGB`.
void toBGR0(const Layout& layout, std::span<const std::uint8_t> bytes, std::span<std::uint8_t> out);

}  // namespace halvo::XPixels
