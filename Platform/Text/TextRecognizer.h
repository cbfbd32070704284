#pragma once

#include <stdexcept>
#include <stop_token>
#include <string>
#include <string_view>
#include <variant>

namespace halvo {

/// The recogniser could not be run, or gave up on the image. `what()` is fit for a log line and holds none of the image's text.
class TextRecognitionError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Reads the text in an image. One caller at a time.
class TextRecognizer {
 public:
  struct Recognized {
    std::string text;  ///< valid UTF-8; empty when the image has no text
    bool operator==(const Recognized&) const = default;
  };
  struct TimedOut {
    bool operator==(const TimedOut&) const = default;
  };
  using Outcome = std::variant<Recognized, TimedOut>;

  virtual ~TextRecognizer() = default;
  /// Gives up, and stops the work, when `timeoutSec` pass. Throws `TextRecognitionError` and `Cancelled`.
  virtual Outcome recognize(std::string_view png, double timeoutSec, const std::stop_token& stop) = 0;
};

}  // namespace halvo
