#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include <sys/mman.h>
#include <unistd.h>

#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Recording/VideoEncryptionError.h"
#include "CaptureShared/Recording/VideoStreamDecryptor.h"
#include "CaptureShared/Recording/VideoStreamEncryptor.h"

namespace {

using namespace halvo;

/// The key that the corpus is sealed with: the bytes 0 to 31.
SymmetricKey corpusKey() {
  std::array<char, SymmetricKey::size> bytes;
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i);
  return SymmetricKey(bytes);
}

class MemoryFile {
 public:
  explicit MemoryFile(std::string_view bytes = {}) : handle_(::memfd_create("fuzz", MFD_CLOEXEC)) {
    if (!handle_) throw std::system_error(errno, std::generic_category(), "memfd");
    writeAll(handle_.fd(), bytes, "fuzz");
    rewind();
  }
  int fd() const { return handle_.fd(); }
  void rewind() const { ::lseek(handle_.fd(), 0, SEEK_SET); }

 private:
  FileHandle handle_;
};

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

}  // namespace

/// Of a file that is cut no other chunks are read than of the whole one, and what is sealed opens as it was.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const auto whole = read(MemoryFile(bytes));
  for (const auto cutAt : {size / 2, size - size / 5, size - (size > 0)}) {
    const auto cut = read(MemoryFile(bytes.substr(0, cutAt)));
    if (cut.chunks.size() > whole.chunks.size()) std::abort();
    for (std::size_t i = 0; i < cut.chunks.size(); ++i)
      if (cut.chunks[i] != whole.chunks[i]) std::abort();
    // A cut adds no error of its own but to a header.
    if (cut.error && cut.error != whole.error && cut.error != VideoEncryptionError::Kind::notEncrypted) std::abort();
  }

  const MemoryFile sealed;
  const auto key = corpusKey();
  VideoStreamEncryptor encryptor({.key = key, .generation = 1, .output = sealed.fd()});
  encryptor.write(bytes.substr(0, size / 3));
  encryptor.write(bytes.substr(size / 3));
  sealed.rewind();
  VideoStreamDecryptor opened(key, sealed.fd());
  if (opened.readAll() != bytes) std::abort();
  return 0;
}
