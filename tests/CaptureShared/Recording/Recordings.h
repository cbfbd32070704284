#pragma once

#include <string>
#include <vector>

#include <fcntl.h>

#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Recording/VideoStreamDecryptor.h"
#include "CaptureShared/Recording/VideoStreamEncryptor.h"

namespace halvo::test {

inline SymmetricKey keyOf(char fill) { return SymmetricKey(std::span<const char, 32>(std::string(32, fill).data(), 32)); }
inline FileHandle create(const std::filesystem::path& file) { return FileHandle(::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600)); }

/// A recording of one write after another.
inline void seal(const std::filesystem::path& file, const std::vector<std::string>& writes, std::int64_t generation = 1, char key = 'k') {
  const auto output = create(file);
  VideoStreamEncryptor encryptor({.key = keyOf(key), .generation = generation, .output = output.fd()});
  for (const auto& data : writes) encryptor.write(data);
}

}  // namespace halvo::test
