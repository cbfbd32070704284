#pragma once

#include <cstdint>
#include <string_view>

#include "CaptureShared/Recording/ChunkCipher.h"

namespace halvo {

/// Writes one recording. For one thread at a time; holds memory for one chunk.
class VideoStreamEncryptor {
 public:
  struct Setup {
    const SymmetricKey& key;
    std::int64_t generation = 1;  ///< of the key; outside 32 bits the process aborts
    int output = -1;              ///< an open descriptor; the caller closes it
  };
  /// Writes the header. Throws `std::system_error`, `VideoEncryptionError`.
  explicit VideoStreamEncryptor(const Setup& setup);

  /// Seals the bytes, whole, in chunks of at most 1 MiB: after it returns a crash can't lose them. No bytes, no chunk. Throws
  /// `VideoEncryptionError::sealingFailed`, and `std::system_error` when the output fails. Such a file may end inside a chunk, behind which
  /// a reader would find nothing, so from then on every write throws: go on in a new file.
  void write(std::string_view data);

 private:
  void writeChunk(std::string_view plaintext);

  ChunkCipher cipher_;
  int output_;
  bool isCut_ = false;
};

}  // namespace halvo
