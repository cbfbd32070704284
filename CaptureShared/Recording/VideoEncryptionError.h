#pragma once

#include <stdexcept>

namespace halvo {

/// A recording that can't be sealed or opened.
class VideoEncryptionError : public std::runtime_error {
 public:
  enum class Kind { sealingFailed, notEncrypted, corruptChunk, authenticationFailed };
  explicit VideoEncryptionError(Kind kind);
  Kind kind() const { return kind_; }

 private:
  Kind kind_;
};

}  // namespace halvo
