#pragma once

#include <memory>
#include <optional>
#include <stop_token>
#include <string>

#include "Platform/Text/TextRecognizer.h"

namespace halvo {

/// The text in a picture, or nothing within its time. The recogniser kills its own child process when its time is over; should it hang
/// all the same, it is abandoned a moment later and asked nothing until it has come back.
class VisionTextRecognizer {
 public:
  struct OCRResult {
    std::string text = {};
    bool operator==(const OCRResult&) const = default;
  };
  static constexpr double defaultTimeout = 10;  ///< seconds
  static constexpr double graceSec = 1;         ///< what a recogniser that ends by itself may take beyond its time

  explicit VisionTextRecognizer(std::shared_ptr<TextRecognizer> recognizer);

  /// Absent when the time is over. Throws `TextRecognitionError` and `Cancelled`.
  std::optional<OCRResult> recognize(std::string png, double timeout, const std::stop_token& stop);

 private:
  struct Shared;
  std::shared_ptr<Shared> shared_;
};

}  // namespace halvo
