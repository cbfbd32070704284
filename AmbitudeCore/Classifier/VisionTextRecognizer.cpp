#include "AmbitudeCore/Classifier/VisionTextRecognizer.h"

#include <atomic>

#include "AmbitudeCore/Classifier/DeadlineBound.h"
#include "CaptureShared/Foundation/Match.h"

namespace halvo {

struct VisionTextRecognizer::Shared {
  std::shared_ptr<TextRecognizer> recognizer;
  std::atomic<bool> isBusy = false;
};

VisionTextRecognizer::VisionTextRecognizer(std::shared_ptr<TextRecognizer> recognizer) : shared_(std::make_shared<Shared>()) {
  shared_->recognizer = std::move(recognizer);
}

std::optional<VisionTextRecognizer::OCRResult> VisionTextRecognizer::recognize(std::string png, double timeout,
                                                                               const std::stop_token& stop) {
  if (shared_->isBusy.exchange(true)) return std::nullopt;
  const auto outcome =
      DeadlineBound::run(timeout + graceSec, stop, [shared = shared_, image = std::move(png), timeout](const std::stop_token& own) {
        struct Free {
          std::atomic<bool>& flag;
          ~Free() { flag = false; }
        } const free{shared->isBusy};
        return shared->recognizer->recognize(image, timeout, own);
      });
  if (!outcome) return std::nullopt;
  return match(
      *outcome, [](const TextRecognizer::Recognized& read) { return std::optional(OCRResult{read.text}); },
      [](const TextRecognizer::TimedOut&) { return std::optional<OCRResult>(); });
}

}  // namespace halvo
