#include "CaptureShared/Recording/VideoEncryptionFormat.h"

#include <exception>
#include <string>

#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Recording/LittleEndian.h"

namespace halvo::VideoEncryptionFormat {
namespace {

/// What there is of a version 2 header; empty on any failure.
std::string beginning(const std::filesystem::path& file) {
  try {
    return FileHandle::openForRead(file).readAt(0, v2HeaderLength);
  } catch (const std::exception&) {
    return {};
  }
}

}  // namespace

bool isEncrypted(const std::filesystem::path& at) {
  const auto header = beginning(at);
  return header.starts_with(magicV1) || header.starts_with(magicV2);
}

std::optional<std::uint32_t> peekHeaderGeneration(const std::filesystem::path& at) {
  const auto header = beginning(at);
  if (!header.starts_with(magicV2) || header.size() < v2HeaderLength) return std::nullopt;
  return LittleEndian::number(std::span<const char, 4>(header.data() + magicV2.size(), generationFieldLength));
}

}  // namespace halvo::VideoEncryptionFormat
