#include "agents/Capturer/MatroskaPieces.h"

#include <bit>
#include <cstdint>
#include <stdexcept>
#include <utility>

namespace halvo {
namespace {

constexpr std::uint64_t segmentID = 0x18538067, clusterID = 0x1F43B675;
constexpr char paddingID = '\xEC';
/// Above any cluster of one frame.
constexpr std::uint64_t largestElement = 256 << 20;

struct Number {
  std::uint64_t marked = 0;  ///< with the bit that tells its length, as IDs are written
  std::uint64_t value = 0;
  std::size_t length = 0;  ///< bytes
};

/// EBML's numbers: the zero bits in front of the first set one tell how many bytes follow. Absent when some are missing.
std::optional<Number> numberAt(std::string_view bytes) {
  if (bytes.empty()) return std::nullopt;
  const auto first = static_cast<unsigned char>(bytes[0]);
  if (first == 0) throw std::runtime_error("ffmpeg's output is no Matroska stream");
  Number number{.length = static_cast<std::size_t>(std::countl_zero(first)) + 1};
  if (bytes.size() < number.length) return std::nullopt;
  for (std::size_t i = 0; i < number.length; ++i) number.marked = number.marked << 8 | static_cast<unsigned char>(bytes[i]);
  number.value = number.marked & ((std::uint64_t{1} << 7 * number.length) - 1);
  return number;
}

}  // namespace

void MatroskaPieces::feed(std::string_view bytes) {
  bytes_.erase(0, std::exchange(at_, 0));
  bytes_ += bytes;
}

std::optional<MatroskaPieces::Piece> MatroskaPieces::next() {
  const auto rest = std::string_view(bytes_).substr(at_);
  const auto id = numberAt(rest);
  const auto size = id ? numberAt(rest.substr(id->length)) : std::nullopt;
  if (!size) return std::nullopt;
  auto length = id->length + size->length;
  if (id->marked != segmentID) {  // whose end is not known while it is written
    if (size->value > largestElement) throw std::runtime_error("ffmpeg's output is no Matroska stream");
    length += size->value;
  }
  if (rest.size() < length) return std::nullopt;
  at_ += length;
  return Piece{.bytes = rest.substr(0, length), .isCluster = id->marked == clusterID};
}

std::string MatroskaPieces::padding(std::size_t size) {
  constexpr std::size_t head = 9;  // the ID, and a length of 8 bytes
  std::string element(size, '\0');
  element[0] = paddingID;
  element[1] = 1;
  for (std::size_t i = 0; i < 7; ++i) element[head - 1 - i] = static_cast<char>((size - head) >> 8 * i);
  return element;
}

}  // namespace halvo
