#include "CaptureShared/Recording/VideoStreamEncryptor.h"

#include <cerrno>
#include <cstdlib>
#include <limits>
#include <system_error>

#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Recording/LittleEndian.h"
#include "CaptureShared/Recording/VideoEncryptionFormat.h"

namespace halvo {
namespace {

using namespace VideoEncryptionFormat;

constexpr auto outputName = "recording";

std::string_view text(const std::array<char, 4>& bytes) { return {bytes.data(), bytes.size()}; }

}  // namespace

VideoStreamEncryptor::VideoStreamEncryptor(const Setup& setup) : cipher_(setup.key, ChunkCipher::Direction::seal), output_(setup.output) {
  if (setup.generation < 0 || setup.generation > std::numeric_limits<std::uint32_t>::max()) std::abort();
  writeAll(output_, magicV2, outputName);
  writeAll(output_, text(LittleEndian::bytes(static_cast<std::uint32_t>(setup.generation))), outputName);
}

void VideoStreamEncryptor::write(std::string_view data) {
  while (!data.empty()) {
    const auto slice = data.substr(0, chunkSize);
    writeChunk(slice);
    data.remove_prefix(slice.size());
  }
}

void VideoStreamEncryptor::writeChunk(std::string_view plaintext) {
  if (isCut_) throw std::system_error(EIO, std::generic_category(), "recording cut by an earlier failure");
  const auto box = cipher_.room(plaintext.size() + boxOverhead);
  cipher_.seal(plaintext, box);
  isCut_ = true;
  writeAll(output_, text(LittleEndian::bytes(static_cast<std::uint32_t>(box.size()))), outputName);
  writeAll(output_, {box.data(), box.size()}, outputName);
  isCut_ = false;
}

}  // namespace halvo
