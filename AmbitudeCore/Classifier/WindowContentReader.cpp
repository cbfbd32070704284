#include "AmbitudeCore/Classifier/WindowContentReader.h"

#include <fmt/format.h>

#include "AmbitudeCore/Backends/LocalInferenceWire.h"
#include "AmbitudeCore/Backends/ModelBackendError.h"
#include "AmbitudeCore/Classifier/ModelReply.h"
#include "CaptureShared/Foundation/Base64.h"
#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/Match.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo {
WindowContentReader::WindowContentReader(Ports ports, Denylist denylist)
    : ports_(std::move(ports)), denylist_(std::move(denylist)), ocr_(ports_.recognizer) {}

std::optional<ScreenBounds> WindowContentReader::frontmostContentBounds(const SignalsReader& signals, std::int64_t asOfMs) {
  const auto tick = signals.latestTick(asOfMs);
  if (!tick || !tick->frontmostApp) return std::nullopt;
  const auto window = signals.contentWindow(tick->tsMs, *tick->frontmostApp);
  if (!window || window->width < 1 || window->height < 1) return std::nullopt;
  return ScreenBounds{.x = window->x, .y = window->y, .width = window->width, .height = window->height};
}

WindowContentReader::Capture WindowContentReader::capture(const ScreenBounds& bounds, double timeout, const std::stop_token& stop) {
  Capture taken{.screenshotAtMs = ports_.nowMs()};
  taken.png = ports_.screen.capturePNG({.x = bounds.x, .y = bounds.y, .width = bounds.width, .height = bounds.height}, timeout, stop);
  return taken;
}

std::string WindowContentReader::describeImage(std::string_view imageBase64, const Config& config, const std::stop_token& stop) {
  return LocalInferenceWire::ask({.endpoint = config.endpoint,
                                  .model = config.describeModel,
                                  .messages = {LocalInferenceWire::imageMessage(config.describePrompt, imageBase64)},
                                  .maxTokens = config.describeNumPredict,
                                  .timeoutSec = describeTimeout},
                                 ports_.transport, stop);
}

std::optional<std::string> WindowContentReader::visionOCR(const std::string& png, double timeout, const std::stop_token& stop) {
  try {
    if (auto read = ocr_.recognize(png, timeout, stop)) return std::move(read->text);
    ports_.log(fmt::format("Vision OCR timed out after {:.0f}s — abandoning the request and judging without OCR text", timeout));
  } catch (const Cancelled&) {
    throw;
  } catch (const std::exception& error) {
    ports_.log(fmt::format("vision OCR failed ({})", error.what()));
  }
  return std::nullopt;
}

bool WindowContentReader::mayLook(const Target& target, Content& content) {
  return match(
      LiveWindowGuard::look(ports_.probes, denylist_, target.bounds, target.expectedApp),
      [](const LiveWindowGuard::Clear&) { return true; },
      [&](const LiveWindowGuard::Withheld& hit) {
        content.withheld = hit.reason;
        return false;
      },
      [&](const LiveWindowGuard::Unsure& unsure) {
        ports_.log(fmt::format("no screenshot: {}", unsure.why));
        return false;
      });
}

WindowContentReader::Content WindowContentReader::read(const Target& target, const Config& config, const std::stop_token& stop) {
  Content content;
  if (!mayLook(target, content)) return content;
  Capture taken;
  try {
    taken = capture(target.bounds, screencaptureTimeout, stop);
  } catch (const ScreenCaptureError& error) {
    ports_.log(fmt::format("no screenshot: {}", error.what()));
    return content;
  }
  // A window may have come up while the pixels were read.
  if (!mayLook(target, content)) return content;

  content.screenshotAtMs = taken.screenshotAtMs;
  content.ocrText = visionOCR(taken.png, VisionTextRecognizer::defaultTimeout, stop);
  try {
    content.description = describeImage(Base64::encode(taken.png), config, stop);
  } catch (const ModelBackendError& error) {
    ports_.log(fmt::format("window description failed ({})", ModelReply::excerpt(describeError(error))));
  }
  return content;
}

}  // namespace halvo
