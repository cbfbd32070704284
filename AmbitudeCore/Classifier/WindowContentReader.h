#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>

#include "AmbitudeCore/Classifier/LiveWindowGuard.h"
#include "AmbitudeCore/Classifier/VisionTextRecognizer.h"
#include "CaptureShared/Foundation/Log.h"
#include "CaptureShared/Net/HTTPTransport.h"
#include "CaptureShared/Privacy/ContentWithheldReason.h"
#include "CaptureShared/Privacy/OnScreenWindowRecord.h"
#include "CaptureShared/Signals/SignalsReader.h"
#include "Platform/Screen/ScreenCapture.h"

namespace halvo {

/// What can be read off the window in front. The picture is held in memory only and gone when `read` returns.
class WindowContentReader {
 public:
  static constexpr double screencaptureTimeout = 10;  ///< seconds
  static constexpr double describeTimeout = 60;       ///< seconds
  static constexpr std::string_view standardDescribePrompt =
      "In 1-2 short sentences, describe what app/content is visible in this window screenshot. Focus on WHAT KIND of activity this is "
      "(e.g. 'texting a friend', 'watching a video', 'writing code'), not exact text content.";

  struct Config {
    std::string describeModel = {};
    std::string describePrompt = std::string(standardDescribePrompt);
    std::string endpoint = {};  ///< the full chat endpoint
    int describeNumPredict = 120;
  };

  /// The machine's operations. All must outlive the reader.
  struct Ports {
    DesktopProbes& probes;
    ScreenCapture& screen;
    std::shared_ptr<TextRecognizer> recognizer;
    HTTPTransport& transport;
    std::function<std::int64_t()> nowMs;
    LogSink log;
  };

  WindowContentReader(Ports ports, Denylist denylist);

  /// The focused window of the app in front at the newest sample; absent without one. Throws `SignalsReaderError`.
  static std::optional<ScreenBounds> frontmostContentBounds(const SignalsReader& signals, std::int64_t asOfMs);

  struct Capture {
    std::string png = {};
    std::int64_t screenshotAtMs = 0;  ///< read when the capture starts
  };
  /// The pixels, whoever they belong to: `read` asks first. Throws `ScreenCaptureError` and `Cancelled`.
  Capture capture(const ScreenBounds& bounds, double timeout, const std::stop_token& stop);
  /// One call to the model. Throws `ModelBackendError` and `Cancelled`.
  std::string describeImage(std::string_view imageBase64, const Config& config, const std::stop_token& stop);
  /// The text in the picture; absent, with a log line, when it takes too long or fails. Throws `Cancelled`.
  std::optional<std::string> visionOCR(const std::string& png, double timeout, const std::stop_token& stop);

  struct Content {
    std::optional<std::string> ocrText = {};
    std::optional<std::string> description = {};
    std::optional<std::int64_t> screenshotAtMs = {};  ///< absent: no picture was taken, or it was thrown away
    std::optional<ContentWithheldReason> withheld = {};
    bool operator==(const Content&) const = default;
  };
  struct Target {
    ScreenBounds bounds = {};
    std::optional<std::string> expectedApp = {};  ///< the app that the moment is about
  };
  /// Looks at the windows, takes the picture, looks again (an excluded app in either look throws the picture away), then reads and
  /// describes it. What fails is left out, with a log line; an error holds no text of the screen. Throws `Cancelled`.
  Content read(const Target& target, const Config& config, const std::stop_token& stop);

 private:
  bool mayLook(const Target& target, Content& content);

  Ports ports_;
  Denylist denylist_;
  VisionTextRecognizer ocr_;
};

}  // namespace halvo
