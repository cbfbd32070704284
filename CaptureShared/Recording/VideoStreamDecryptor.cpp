#include "CaptureShared/Recording/VideoStreamDecryptor.h"

#include <array>
#include <cerrno>
#include <system_error>

#include <unistd.h>

#include "CaptureShared/Recording/LittleEndian.h"
#include "CaptureShared/Recording/VideoEncryptionError.h"
#include "CaptureShared/Recording/VideoEncryptionFormat.h"

namespace halvo {
namespace {

using namespace VideoEncryptionFormat;

/// Whether the input had as much.
bool fill(int input, std::span<char> room) {
  while (!room.empty()) {
    const auto got = ::read(input, room.data(), room.size());
    if (got < 0) {
      if (errno == EINTR) continue;
      throw std::system_error(errno, std::generic_category(), "read");
    }
    if (got == 0) return false;
    room = room.subspan(static_cast<std::size_t>(got));
  }
  return true;
}

}  // namespace

VideoStreamDecryptor::VideoStreamDecryptor(const SymmetricKey& key, int input) : cipher_(key, ChunkCipher::Direction::open), input_(input) {
  std::array<char, magicV2.size()> magicBytes;
  if (!fill(input_, magicBytes)) throw VideoEncryptionError(VideoEncryptionError::Kind::notEncrypted);
  const std::string_view magicText(magicBytes.data(), magicBytes.size());
  if (magicText != magicV1 && magicText != magicV2) throw VideoEncryptionError(VideoEncryptionError::Kind::notEncrypted);
  std::array<char, generationFieldLength> generation;
  if (magicText == magicV2) isAtEnd_ = !fill(input_, generation);
}

std::optional<std::string_view> VideoStreamDecryptor::readChunk() {
  if (isAtEnd_) return std::nullopt;
  const auto box = readBox();
  // Part of a chunk was read: nothing behind it could be told apart from its rest.
  isAtEnd_ = !box;
  return box ? std::optional(cipher_.open(*box)) : std::nullopt;
}

std::optional<std::span<char>> VideoStreamDecryptor::readBox() {
  std::array<char, lengthFieldLength> lengthBytes;
  if (!fill(input_, lengthBytes)) return std::nullopt;
  const auto length = LittleEndian::number(lengthBytes);
  // A length of nothing is no cut tail: zeros are what a file system leaves of a block it lost.
  if (length == 0 || length > maxPlausibleCombinedLength) throw VideoEncryptionError(VideoEncryptionError::Kind::corruptChunk);
  const auto box = cipher_.room(length);
  if (!fill(input_, box)) return std::nullopt;
  if (length < boxOverhead) throw VideoEncryptionError(VideoEncryptionError::Kind::corruptChunk);
  return box;
}

std::string VideoStreamDecryptor::readAll() {
  std::string plaintext;
  while (const auto chunk = readChunk()) plaintext += *chunk;
  return plaintext;
}

}  // namespace halvo
