#pragma once

#include <algorithm>
#include <functional>
#include <utility>

#include "CaptureShared/Foundation/Clock.h"
#include "Platform/Desktop/DesktopProbes.h"
#include "Platform/Desktop/NowPlaying.h"
#include "Platform/Machine/Machine.h"
#include "Platform/Power/PowerSource.h"
#include "Platform/Screen/ScreenCapture.h"
#include "Platform/Text/TextRecognizer.h"

/// Ports that a test drives by hand: set the public field, and the port answers it.
namespace halvo {

class FakeDesktopProbes : public DesktopProbes {
 public:
  DesktopSample now;
  int samples = 0;  ///< how often `sample` was called

  std::optional<FrontmostApp> frontmostApp() override { return now.frontmostApp; }
  std::optional<std::vector<WindowInfo>> windowList() override { return now.windows; }
  IdleSeconds idleSeconds() override { return now.idle; }
  std::optional<Point> mouseLocation() override { return now.mouse; }
  std::optional<bool> clamshellClosed() override { return now.clamshellClosed; }
  SessionState sessionState() override { return now.session; }
  std::optional<BrowserTab> browserTab(const std::optional<std::string>&) override { return now.browserTab; }
  BatteryInfo batteryInfo() override { return now.battery; }
  BatteryTelemetry batteryTelemetry() override { return now.batteryTelemetry; }
  DesktopSample sample() override {
    ++samples;
    return now;
  }
};

class FakeNowPlaying : public NowPlaying {
 public:
  Result now;
  int pauses = 0;  ///< how often `sendPause` was called

  Result fetch() override { return now; }
  void sendPause() override {
    ++pauses;
    if (now.playing) now.playing = false;
  }
};

class FakeScreenCapture : public ScreenCapture {
 public:
  std::vector<ScreenDisplay> monitors;
  std::string png = "not really a picture";
  std::uint8_t shade = 0x80;                  ///< every byte of a raw picture
  std::optional<ScreenCaptureError> failure;  ///< thrown instead of answering
  std::vector<Rect> captured;                 ///< the rectangles asked for, in order
  std::function<void()> duringCapture;        ///< run before the answer

  std::vector<ScreenDisplay> displays() override {
    if (failure) throw ScreenCaptureError(*failure);
    return monitors;
  }
  std::string capturePNG(const Rect& bounds, double, const std::stop_token& stop) override {
    throwIfStopped(stop);
    captured.push_back(bounds);
    if (duringCapture) duringCapture();
    if (failure) throw ScreenCaptureError(*failure);
    return png;
  }
  void capturePixels(const Rect& bounds, std::span<std::uint8_t> pixels, double, const std::stop_token& stop) override {
    throwIfStopped(stop);
    captured.push_back(bounds);
    if (duringCapture) duringCapture();
    if (failure) throw ScreenCaptureError(*failure);
    std::fill(pixels.begin(), pixels.end(), shade);
  }
};

class FakeTextRecognizer : public TextRecognizer {
 public:
  Outcome outcome = Recognized{};
  std::optional<TextRecognitionError> failure;  ///< thrown instead of answering
  std::vector<std::string> seen;                ///< the images handed in, in order

  Outcome recognize(std::string_view png, double, const std::stop_token& stop) override {
    throwIfStopped(stop);
    seen.emplace_back(png);
    if (failure) throw TextRecognitionError(*failure);
    return outcome;
  }
};

class FakePowerSource : public PowerSource {
 public:
  PowerSnapshot power;
  ThermalReading warmth;

  PowerSnapshot snapshot() override { return power; }
  ThermalReading thermal() override { return warmth; }
};

class FakeMachine : public Machine {
 public:
  std::optional<std::int64_t> bootMs;
  std::optional<std::string> name;
  std::optional<std::uint64_t> free;
  std::optional<std::uint64_t> memory;

  std::optional<std::int64_t> bootTimeMs() const override { return bootMs; }
  std::optional<std::string> identity() const override { return name; }
  std::optional<std::uint64_t> freeBytes(const std::filesystem::path&) const override { return free; }
  std::optional<std::uint64_t> physicalMemoryBytes() const override { return memory; }
};

}  // namespace halvo
