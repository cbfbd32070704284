#include "Platform/Linux/XPixels.h"

#include <bit>
#include <cstring>
#include <stdexcept>

namespace halvo::XPixels {
namespace {

/// One colour's bits, stretched to eight.
class Channel {
 public:
  explicit Channel(std::uint32_t mask) : mask_(mask) {
    if (mask == 0) throw std::runtime_error("the display has no colours");
    shift_ = std::countr_zero(mask);
    largest_ = mask >> shift_;
  }
  std::uint8_t of(std::uint32_t pixel) const {
    const auto value = (pixel & mask_) >> shift_;
    return static_cast<std::uint8_t>(largest_ == 255 ? value : std::uint64_t{value} * 255 / largest_);
  }

 private:
  std::uint32_t mask_, largest_ = 0;
  int shift_ = 0;
};

/// Four bytes a pixel, in the order blue, green, red: what nearly every server has.
bool isUsual(const Layout& layout) {
  return layout.bitsPerPixel == 32 && layout.lowByteFirst && layout.red == 0xFF0000 && layout.green == 0xFF00 && layout.blue == 0xFF;
}

}  // namespace

std::size_t rowBytes(const Layout& layout) {
  const std::size_t bits = std::size_t{layout.width} * layout.bitsPerPixel;
  return (bits + layout.padBits - 1) / layout.padBits * layout.padBits / 8;
}

PNGWriter::RGBImage toRGB(const Layout& layout, std::span<const std::uint8_t> bytes) {
  if (layout.bitsPerPixel != 16 && layout.bitsPerPixel != 24 && layout.bitsPerPixel != 32)
    throw std::runtime_error("the display's pixels have an unusual size");
  const auto stride = rowBytes(layout);
  if (bytes.size() < stride * layout.height) throw std::runtime_error("the display sent too few pixels");
  const Channel red(layout.red), green(layout.green), blue(layout.blue);
  PNGWriter::RGBImage image{.width = layout.width, .height = layout.height};
  image.pixels.resize(std::size_t{layout.width} * layout.height * 3);
  const std::size_t size = layout.bitsPerPixel / 8;
  auto* out = image.pixels.data();
  const bool usual = isUsual(layout);
  for (std::uint32_t y = 0; y < layout.height; ++y) {
    const auto* row = bytes.data() + y * stride;
    if (usual) {
      for (std::uint32_t x = 0; x < layout.width; ++x, row += 4, out += 3) out[0] = row[2], out[1] = row[1], out[2] = row[0];
      continue;
    }
    for (std::uint32_t x = 0; x < layout.width; ++x, row += size, out += 3) {
      std::uint32_t pixel = 0;
      for (std::size_t i = 0; i < size; ++i) pixel |= std::uint32_t{row[i]} << 8 * (layout.lowByteFirst ? i : size - 1 - i);
      out[0] = red.of(pixel), out[1] = green.of(pixel), out[2] = blue.of(pixel);
    }
  }
  return image;
}

void toBGR0(const Layout& layout, std::span<const std::uint8_t> bytes, std::span<std::uint8_t> out) {
  if (out.size() != std::size_t{layout.width} * layout.height * 4) throw std::runtime_error("no room for the picture, or too much");
  if (isUsual(layout) && rowBytes(layout) == std::size_t{layout.width} * 4 && bytes.size() >= out.size()) {
    std::memcpy(out.data(), bytes.data(), out.size());
    return;
  }
  const auto image = toRGB(layout, bytes);
  auto* to = out.data();
  for (const auto* from = image.pixels.data(); to != out.data() + out.size(); from += 3, to += 4)
    to[0] = from[2], to[1] = from[1], to[2] = from[0], to[3] = 0;
}

}  // namespace halvo::XPixels
