#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "CaptureShared/Recording/ChunkCipher.h"

namespace halvo {

/// Reads one recording, also one that is being written or whose writer died: every whole chunk, then the end. For one thread at a time;
/// holds memory for one chunk.
class VideoStreamDecryptor {
 public:
  /// `input` is an open descriptor, read from where it stands; the caller closes it. The generation in the header is not looked at: a wrong
  /// key shows at the first chunk. Throws `VideoEncryptionError::notEncrypted`, `std::system_error`.
  VideoStreamDecryptor(const SymmetricKey& key, int input);

  /// The next plaintext, in memory that the next call takes back; absent at the end, from then on always. Throws
  /// `VideoEncryptionError` (corruptChunk, authenticationFailed), `std::system_error`.
  std::optional<std::string_view> readChunk();
  /// All there is, in memory at once. Throws as `readChunk`, and then nothing is answered.
  std::string readAll();

 private:
  std::optional<std::span<char>> readBox();

  ChunkCipher cipher_;
  int input_;
  bool isAtEnd_ = false;
};

}  // namespace halvo
