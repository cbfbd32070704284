#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <system_error>

namespace halvo {

/// The recorder can't go on. `what()` is fit for a log line; the code is one of `CapturerExit`.
class CaptureEnd : public std::runtime_error {
 public:
  CaptureEnd(std::int32_t code, const std::string& text) : std::runtime_error(text), code_(code) {}
  std::int32_t code() const { return code_; }

  /// What a write that failed means: the disk is full, or the recording can't be kept for another reason.
  static CaptureEnd ofWrite(const std::system_error& error);

 private:
  std::int32_t code_;
};

}  // namespace halvo
