#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "CaptureShared/Recording/VideoEncryptionError.h"
#include "CaptureShared/Recording/VideoEncryptionFormat.h"
#include "CaptureShared/Recording/VideoStreamDecryptor.h"
#include "CaptureShared/Recording/VideoStreamEncryptor.h"
#include "fuzz/MemoryFile.h"
#include "fuzz/Require.h"

namespace {

using namespace halvo;
using namespace VideoEncryptionFormat;

/// The key that the corpus is sealed with: the bytes 0 to 31.
const SymmetricKey& corpusKey() {
  static const auto key = [] {
    std::array<char, SymmetricKey::size> bytes;
    for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i);
    return SymmetricKey(bytes);
  }();
  return key;
}

struct Reading {
  std::vector<std::string> chunks = {};
  std::optional<VideoEncryptionError::Kind> error = {};
};

Reading read(const MemoryFile& file) {
  Reading reading;
  try {
    VideoStreamDecryptor decryptor(corpusKey(), file.fd());
    while (const auto chunk = decryptor.readChunk()) reading.chunks.emplace_back(*chunk);
  } catch (const VideoEncryptionError& error) {
    reading.error = error.kind();
  }
  return reading;
}

Reading readBytes(std::string_view bytes) {
  static const MemoryFile file;
  file.fill(bytes);
  return read(file);
}

/// By name they see what the decryptor sees.
void checkHeader(std::string_view bytes) {
  static const MemoryFile file;
  file.fill(bytes.substr(0, v2HeaderLength));
  require(isEncrypted(file.path()) == (read(file).error != VideoEncryptionError::Kind::notEncrypted));
  require(peekHeaderGeneration(file.path()).has_value() == (bytes.starts_with(magicV2) && bytes.size() >= v2HeaderLength));
}

/// Of a file that is cut no other chunks are read than of the whole one.
void checkHostile(std::string_view bytes) {
  const auto whole = readBytes(bytes);
  for (const auto cutAt : {bytes.size() / 2, bytes.size() - bytes.size() / 5, bytes.size() - (bytes.size() > 0)}) {
    const auto cut = readBytes(bytes.substr(0, cutAt));
    require(cut.chunks.size() <= whole.chunks.size());
    for (std::size_t i = 0; i < cut.chunks.size(); ++i) require(cut.chunks[i] == whole.chunks[i]);
    // A cut adds no error of its own but to a header.
    require(!cut.error || cut.error == whole.error || cut.error == VideoEncryptionError::Kind::notEncrypted);
  }
}

/// How many of the chunks lie whole before a place in the file.
std::size_t chunksBefore(std::size_t place, const std::vector<std::string>& chunks) {
  std::size_t count = 0;
  for (auto end = v2HeaderLength; count < chunks.size(); ++count) {
    end += lengthFieldLength + boxOverhead + chunks[count].size();
    if (end > place) break;
  }
  return count;
}

void requireFirst(std::size_t count, const Reading& reading, const std::vector<std::string>& chunks) {
  require(reading.chunks == std::vector<std::string>(chunks.begin(), chunks.begin() + static_cast<std::ptrdiff_t>(count)));
}

/// What is sealed opens as it was; cut or with one bit turned, up to the damage.
void checkDamaged(std::size_t place, int bit, std::string_view plain) {
  static const MemoryFile file;
  file.fill({});
  std::vector<std::string> chunks;
  VideoStreamEncryptor encryptor({.key = corpusKey(), .generation = 1, .output = file.fd()});
  for (std::size_t at = 0, size = 1; at < plain.size(); at += size, size = size * 3 + 1) {
    chunks.emplace_back(plain.substr(at, size));
    encryptor.write(chunks.back());
  }
  file.rewind();
  const auto whole = read(file);
  require(!whole.error);
  requireFirst(chunks.size(), whole, chunks);

  auto sealed = readFile(file.path());
  place %= sealed.size();
  const auto cut = readBytes(std::string_view(sealed).substr(0, place));
  require(cut.error.has_value() == (place < magicV2.size()));
  requireFirst(chunksBefore(place, chunks), cut, chunks);

  sealed[place] = static_cast<char>(sealed[place] ^ (1 << bit));
  const auto turned = readBytes(sealed);
  const bool isInGeneration = place >= magicV2.size() && place < v2HeaderLength;
  requireFirst(place < magicV2.size() ? 0 : isInGeneration ? chunks.size() : chunksBefore(place, chunks), turned, chunks);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  checkHeader(bytes);
  checkHostile(bytes);
  if (size > 2) checkDamaged(static_cast<std::size_t>(data[0]) << 8 | data[1], data[2] % 8, bytes.substr(3, 2000));
  return 0;
}
