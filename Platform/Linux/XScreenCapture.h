#pragma once

#include <memory>
#include <optional>
#include <string>

#include "Platform/Screen/ScreenCapture.h"

namespace halvo {

/// Pictures of an X display, by shared memory where the server shares any, else over its socket. Connects when first asked and again
/// after the server went away.
class XScreenCapture : public ScreenCapture {
 public:
  /// `display` as in ":0"; absent: there is none, and every call throws `ScreenCaptureError` of kind `noDisplay`.
  explicit XScreenCapture(std::optional<std::string> display);
  ~XScreenCapture() override;

  std::vector<ScreenDisplay> displays() override;
  std::string capturePNG(const Rect& bounds, double timeoutSec, const std::stop_token& stop) override;
  void capturePixels(const Rect& bounds, std::span<std::uint8_t> pixels, double timeoutSec, const std::stop_token& stop) override;

 private:
  struct Live;
  template <class F>
  auto withDisplay(F&& body) -> decltype(body(std::declval<Live&>()));
  /// `withDisplay`, and once more when a display that was there has gone; every failure is a `ScreenCaptureError` or `Cancelled`.
  template <class F>
  auto picture(F&& body, const std::stop_token& stop) -> decltype(body(std::declval<Live&>()));

  std::optional<std::string> display_;
  std::unique_ptr<Live> live_;
};

}  // namespace halvo
