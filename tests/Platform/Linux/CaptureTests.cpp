// The screen's pixels, and the text in them.

#include <chrono>
#include <cmath>
#include <filesystem>
#include <thread>

#include <gtest/gtest.h>

#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/Text.h"
#include "Platform/Linux/PNGWriter.h"
#include "Platform/Linux/TesseractRecognizer.h"
#include "Platform/Linux/XScreenCapture.h"
#include "tests/support/Eventually.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestWindow.h"
#include "tests/support/XServer.h"

namespace halvo {
namespace {

using test::TestWindow;
using test::XServer;
using Kind = ScreenCaptureError::Kind;

std::vector<int> pixel(const PNGWriter::RGBImage& image, std::uint32_t x, std::uint32_t y) {
  const auto at = (std::size_t{y} * image.width + x) * 3;
  return {image.pixels[at], image.pixels[at + 1], image.pixels[at + 2]};
}

Kind failureOf(XScreenCapture& capture, const Rect& bounds, double timeoutSec = 5) {
  try {
    capture.capturePNG(bounds, timeoutSec, {});
  } catch (const ScreenCaptureError& error) {
    return error.kind();
  }
  ADD_FAILURE() << "nothing was thrown";
  return Kind::failed;
}

TEST(XScreenCapture, thePixelsOfARectangle) {
  const struct { const char* name; XServer::Options server; std::vector<int> want; } cases[] = {
      {"by shared memory", {.hasWindowManager = false}, {0xFF, 0x80, 0x20}},
      {"over the socket", {.hasWindowManager = false, .more = {"-extension", "MIT-SHM"}}, {0xFF, 0x80, 0x20}},
      {"sixteen bits", {.depth = 16, .hasWindowManager = false}, {255, 129, 32}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const XServer server(c.server);
    const std::uint32_t orange = c.server.depth == 16 ? 0xFC04 : 0xFF8020;
    const TestWindow window(server.display(), {.x = 100, .y = 50, .width = 60, .height = 40, .isOverrideRedirect = true, .color = orange});
    XScreenCapture capture(server.display());
    PNGWriter::RGBImage image;
    ASSERT_TRUE(test::eventually([&] {
      image = PNGWriter::decode(capture.capturePNG({.x = 99, .y = 49, .width = 62, .height = 42}, 5, {}));
      return pixel(image, 1, 1) == c.want;
    }));
    EXPECT_EQ(image.width, 62u);
    EXPECT_EQ(image.height, 42u);
    EXPECT_EQ(pixel(image, 60, 40), c.want);
    EXPECT_EQ(pixel(image, 0, 0), (std::vector<int>{0, 0, 0}));
    EXPECT_EQ(pixel(image, 61, 41), (std::vector<int>{0, 0, 0}));
    for (const int width : {62, 30, 62}) {  // the memory that is kept has to follow
      std::vector<std::uint8_t> raw(static_cast<std::size_t>(width) * 42 * 4, 7);
      capture.capturePixels({.x = 99, .y = 49, .width = static_cast<double>(width), .height = 42}, raw, 5, {});
      const auto* inside = raw.data() + (40 * width + 29) * 4;
      EXPECT_EQ((std::vector<int>{inside[2], inside[1], inside[0]}), c.want) << width;
      EXPECT_EQ(raw[0] + raw[1] + raw[2], 0);
      EXPECT_THROW(capture.capturePixels({.x = 1'270, .width = static_cast<double>(width), .height = 42}, raw, 5, {}), ScreenCaptureError);
    }
  }
}

TEST(XScreenCapture, whatLiesOutsideIsCutOff) {
  const XServer server({.width = 640, .height = 480, .hasWindowManager = false});
  XScreenCapture capture(server.display());
  const auto image = PNGWriter::decode(capture.capturePNG({.x = -10, .y = 470.5, .width = 30, .height = 100}, 5, {}));
  EXPECT_EQ(image.width, 20u);
  EXPECT_EQ(image.height, 10u);
  EXPECT_EQ(failureOf(capture, {.x = 640, .y = 0, .width = 10, .height = 10}), Kind::outsideDesktop);
  EXPECT_EQ(failureOf(capture, {.x = 0, .y = 0, .width = 0, .height = 10}), Kind::outsideDesktop);
  EXPECT_EQ(failureOf(capture, {.x = 0, .y = 0, .width = std::nan(""), .height = 10}), Kind::outsideDesktop);
  const auto displays = capture.displays();
  ASSERT_EQ(displays.size(), 1u);
  EXPECT_EQ(displays[0].number, 0);
  EXPECT_EQ(displays[0].bounds, (Rect{.width = 640, .height = 480}));
}

TEST(XScreenCapture, aServerThatIsAbsentDeadOrSilent) {
  XScreenCapture nowhere(std::nullopt);
  EXPECT_EQ(failureOf(nowhere, {.width = 10, .height = 10}), Kind::noDisplay);

  XServer server({.hasWindowManager = false});
  XScreenCapture capture(server.display());
  ASSERT_FALSE(capture.capturePNG({.width = 10, .height = 10}, 5, {}).empty());
  server.freeze();
  EXPECT_EQ(failureOf(capture, {.width = 10, .height = 10}, 0.3), Kind::timedOut);
  EXPECT_EQ(failureOf(capture, {.width = 10, .height = 10}, 0.3), Kind::timedOut) << "nor does a new connection wait for ever";
  server.thaw();
  ASSERT_FALSE(capture.capturePNG({.width = 10, .height = 10}, 5, {}).empty());
  server.crash();
  EXPECT_EQ(failureOf(capture, {.width = 10, .height = 10}), Kind::noDisplay);
  server.restart();
  EXPECT_FALSE(capture.capturePNG({.width = 10, .height = 10}, 5, {}).empty());
  server.crash();
  server.restart();  // unnoticed: the first picture comes from the new server
  EXPECT_FALSE(capture.capturePNG({.width = 10, .height = 10}, 5, {}).empty());
}

TEST(XScreenCapture, aStopEndsIt) {
  const XServer server({.hasWindowManager = false});
  XScreenCapture capture(server.display());
  ASSERT_FALSE(capture.capturePNG({.width = 10, .height = 10}, 5, {}).empty());
  server.freeze();
  std::stop_source stop;
  std::jthread stopper([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    stop.request_stop();
  });
  const auto start = std::chrono::steady_clock::now();
  EXPECT_THROW(capture.capturePNG({.width = 10, .height = 10}, 30, stop.get_token()), Cancelled);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
}

TEST(TesseractRecognizer, readsWhatIsPaintedOnTheScreen) {
  const XServer server({.hasWindowManager = false});
  const TestWindow window(server.display(),
                          {.x = 0, .y = 0, .width = 700, .height = 80, .isOverrideRedirect = true, .text = "Write the essay about rivers"});
  XScreenCapture capture(server.display());
  TesseractRecognizer recognizer;
  TextRecognizer::Outcome outcome;
  ASSERT_TRUE(test::eventually([&] {
    const auto png = capture.capturePNG({.width = 700, .height = 80}, 5, {});
    outcome = recognizer.recognize(png, 20, {});
    return std::holds_alternative<TextRecognizer::Recognized>(outcome) && !std::get<TextRecognizer::Recognized>(outcome).text.empty();
  }));
  EXPECT_TRUE(Text::containsIgnoringCase(std::get<TextRecognizer::Recognized>(outcome).text, "write the essay about rivers"))
      << std::get<TextRecognizer::Recognized>(outcome).text;
}

TEST(TesseractRecognizer, itsFailuresAreToldApart) {
  EXPECT_THROW(TesseractRecognizer().recognize("no picture at all", 20, {}), TextRecognitionError);
  EXPECT_THROW(TesseractRecognizer("halvo-no-such-program").recognize("", 20, {}), TextRecognitionError);
  const test::TemporaryFolder folder;
  folder.write("slow", "#!/bin/sh\nexec sleep 60\n");
  std::filesystem::permissions(folder.path() / "slow", std::filesystem::perms::owner_all);
  TesseractRecognizer slow((folder.path() / "slow").string());
  EXPECT_EQ(slow.recognize("", 0.2, {}), TextRecognizer::Outcome(TextRecognizer::TimedOut{}));
  std::stop_source stop;
  stop.request_stop();
  EXPECT_THROW(slow.recognize("", 20, stop.get_token()), Cancelled);
}

}  // namespace
}  // namespace halvo
