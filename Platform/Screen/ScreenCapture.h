#pragma once

#include <cstdint>
#include <span>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <vector>

#include "Platform/Desktop/DesktopFacts.h"

namespace halvo {

/// No picture of the screen could be had. `what()` is fit for a log line.
class ScreenCaptureError : public std::runtime_error {
 public:
  enum class Kind {
    noDisplay,       ///< there is no display to look at: try again when there is one
    refused,         ///< the display is there and won't show itself to us
    outsideDesktop,  ///< the rectangle shares no pixel with the desktop
    timedOut,        ///< the display didn't answer in time
    failed           ///< anything else, such as memory running out
  };
  ScreenCaptureError(Kind kind, const std::string& text) : std::runtime_error(text), kind_(kind) {}
  Kind kind() const { return kind_; }

 private:
  Kind kind_;
};

/// One monitor.
struct ScreenDisplay {
  int number = 0;  ///< from 0, the primary one first
  std::string name;
  Rect bounds = {};
  bool isPrimary = false;
  bool operator==(const ScreenDisplay&) const = default;
};

/// Pictures of the screen. They exist in memory only: an implementation never writes one to a file. One caller at a time.
class ScreenCapture {
 public:
  virtual ~ScreenCapture() = default;

  /// The monitors, the primary one first. Throws `ScreenCaptureError`.
  virtual std::vector<ScreenDisplay> displays() = 0;
  /// The pixels of a rectangle as the bytes of an RGB PNG; what lies outside the desktop is cut off. Throws `ScreenCaptureError`, of kind
  /// `timedOut` when `timeoutSec` pass, and `Cancelled`.
  virtual std::string capturePNG(const Rect& bounds, double timeoutSec, const std::stop_token& stop) = 0;
  /// The pixels of a rectangle of whole pixels into `pixels`, 4 bytes each (blue, green, red, unused), rows from the top without padding.
  /// Nothing is cut off: a rectangle that isn't wholly on the desktop is `outsideDesktop`. Throws like `capturePNG`.
  virtual void capturePixels(const Rect& bounds, std::span<std::uint8_t> pixels, double timeoutSec, const std::stop_token& stop) = 0;
};

}  // namespace halvo
