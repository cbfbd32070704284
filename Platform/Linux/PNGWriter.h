#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// Pictures as PNG bytes in memory.
namespace halvo::PNGWriter {

/// Eight bits each of red, green and blue, rows from the top, no padding.
struct RGBImage {
  std::uint32_t width = 0, height = 0;
  std::vector<std::uint8_t> pixels = {};
};

/// Encodes for speed more than for size: the picture lives for a moment. Throws `std::runtime_error` for an image without pixels, or with
/// a pixel count that doesn't match its sides, and when memory runs out.
std::string encode(const RGBImage& image);

/// The reverse, for any PNG. Throws `std::runtime_error` for bytes that are none.
RGBImage decode(std::string_view png);

}  // namespace halvo::PNGWriter
