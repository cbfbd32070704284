#pragma once

#include <string>

#include "Platform/Text/TextRecognizer.h"

namespace halvo {

/// Reads text with the `tesseract` program in a child process: it gets the image on a pipe, so no picture touches a disk, and is killed
/// when its time is over.
class TesseractRecognizer : public TextRecognizer {
 public:
  /// `program` is looked up in PATH when it has no slash.
  explicit TesseractRecognizer(std::string program = "tesseract") : program_(std::move(program)) {}

  Outcome recognize(std::string_view png, double timeoutSec, const std::stop_token& stop) override;

 private:
  std::string program_;
};

}  // namespace halvo
