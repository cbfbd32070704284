#include "Platform/Linux/PNGWriter.h"

#include <cstring>
#include <stdexcept>

#include <png.h>

namespace halvo::PNGWriter {
namespace {

/// libpng's fast setting writes a screen several times quicker than its default, for a file a little larger.
struct Image {
  png_image value = {};
  Image() { value.version = PNG_IMAGE_VERSION; }
  ~Image() { png_image_free(&value); }
  [[noreturn]] void fail() const { throw std::runtime_error(std::string("png: ") + value.message); }
};

}  // namespace

std::string encode(const RGBImage& picture) {
  if (picture.pixels.empty() || picture.pixels.size() != std::size_t{picture.width} * picture.height * 3)
    throw std::runtime_error("png: the image's sides and its pixels don't match");
  Image image;
  image.value.width = picture.width;
  image.value.height = picture.height;
  image.value.format = PNG_FORMAT_RGB;
  image.value.flags = PNG_IMAGE_FLAG_FAST;
  std::string bytes(PNG_IMAGE_PNG_SIZE_MAX(image.value), '\0');
  png_alloc_size_t size = bytes.size();
  if (!png_image_write_to_memory(&image.value, bytes.data(), &size, 0, picture.pixels.data(), 0, nullptr)) image.fail();
  bytes.resize(size);
  return bytes;
}

RGBImage decode(std::string_view png) {
  Image image;
  if (!png_image_begin_read_from_memory(&image.value, png.data(), png.size())) image.fail();
  image.value.format = PNG_FORMAT_RGB;
  RGBImage picture{.width = image.value.width, .height = image.value.height};
  picture.pixels.resize(PNG_IMAGE_SIZE(image.value));
  const png_color black = {};
  if (!png_image_finish_read(&image.value, &black, picture.pixels.data(), 0, nullptr)) image.fail();
  return picture;
}

}  // namespace halvo::PNGWriter
