#include "AmbitudeCore/Classifier/WindowContentReader.h"

#include <gtest/gtest.h>

#include <atomic>

#include "AmbitudeCore/Classifier/DeadlineBound.h"
#include "Platform/Testing/FakePlatform.h"
#include "tests/AmbitudeCore/Classifier/ScriptedModel.h"
#include "tests/support/Eventually.h"

namespace halvo {
namespace {

constexpr ScreenBounds area{100, 100, 400, 300};

struct Desk {
  FakeDesktopProbes probes;
  FakeScreenCapture screen;
  std::shared_ptr<FakeTextRecognizer> recognizer = std::make_shared<FakeTextRecognizer>();
  test::ScriptedModel model;
  std::vector<std::string> log;

  Desk() {
    recognizer->outcome = TextRecognizer::Recognized{"words"};
    model.answer = [](const std::string&) { return "a person writes"; };
    show({window("Editor")});
  }
  static WindowInfo window(const std::string& app, Rect bounds = {100, 100, 400, 300}) { return {.ownerName = app, .bounds = bounds}; }
  void show(std::vector<WindowInfo> windows, const char* front = "Editor") {
    probes.now.frontmostApp = FrontmostApp{.name = front};
    probes.now.windows = std::move(windows);
  }
  WindowContentReader::Content read() {
    WindowContentReader reader({.probes = probes,
                                .screen = screen,
                                .recognizer = recognizer,
                                .transport = model,
                                .nowMs = [] { return std::int64_t{42}; },
                                .log = [this](const std::string& line) { log.push_back(line); }},
                               Denylist::fromEnvironment({}));
    return reader.read({.bounds = area, .expectedApp = "Editor"}, {.endpoint = "http://127.0.0.1:1/v1/chat/completions"}, {});
  }
};

TEST(WindowContentReader, readsAndDescribes) {
  Desk desk;
  EXPECT_EQ(desk.read(), (WindowContentReader::Content{.ocrText = "words", .description = "a person writes", .screenshotAtMs = 42}));
  const auto sent = JSONValue::parse(desk.model.requests.at(0).body);
  EXPECT_EQ(*sent->at({"messages", "0", "content", "0", "text"})->stringValue(), WindowContentReader::standardDescribePrompt);
  EXPECT_EQ(*sent->at({"messages", "0", "content", "1", "image_url", "url"})->stringValue(),
            "data:image/png;base64,bm90IHJlYWxseSBhIHBpY3R1cmU=");
}

TEST(WindowContentReader, anExcludedAppIsNeverCaptured) {
  using enum ContentWithheldReason;
  const auto vault = Desk::window("KeePassXC", {450, 350, 200, 200});
  const auto dialog = Desk::window("Editor", {420, 320, 60, 60});
  const struct {
    const char* name;
    std::function<void(Desk&)> arrange;
    std::optional<ContentWithheldReason> want;
    std::size_t pictures;
  } cases[] = {
      {"in front", [&](Desk& d) { d.show({vault}, "KeePassXC"); }, frontmostAppDenylisted, 0},
      {"over the rectangle", [&](Desk& d) { d.show({vault, Desk::window("Editor")}); }, anotherDenylistedAppWindowVisible, 0},
      {"behind a dialog of the app in front, over its main window", [&](Desk& d) { d.show({dialog, vault, Desk::window("Editor")}); },
       anotherDenylistedAppWindowVisible, 0},
      {"came up while the picture was taken",
       [&](Desk& d) {
         d.screen.duringCapture = [&d, vault] { d.show({vault, Desk::window("Editor")}); };
       },
       anotherDenylistedAppWindowVisible, 1},
      {"came to the front while the picture was taken",
       [&](Desk& d) {
         d.screen.duringCapture = [&d, vault] { d.show({vault}, "KeePassXC"); };
       },
       frontmostAppDenylisted, 1},
      {"windows can't be listed: nothing is looked at", [](Desk& d) { d.probes.now.windows.reset(); }, {}, 0},
      {"another app in front by now", [](Desk& d) { d.show({Desk::window("Mail")}, "Mail"); }, {}, 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Desk desk;
    c.arrange(desk);
    const auto content = desk.read();
    EXPECT_EQ(content, (WindowContentReader::Content{.withheld = c.want}));
    EXPECT_EQ(desk.screen.captured.size(), c.pictures);
    EXPECT_TRUE(desk.recognizer->seen.empty());
    EXPECT_TRUE(desk.model.requests.empty()) << "the picture left the process";
  }
  Desk behind;
  behind.show({Desk::window("Editor"), vault});
  EXPECT_EQ(behind.read().ocrText, "words");
}

TEST(WindowContentReader, whatFailsIsLeftOut) {
  const struct { std::function<void(Desk&)> arrange; WindowContentReader::Content want; const char* line; } cases[] = {
      {[](Desk& d) { d.screen.failure.emplace(ScreenCaptureError::Kind::refused, "the display refuses"); }, {},
       "no screenshot: the display refuses"},
      {[](Desk& d) { d.recognizer->outcome = TextRecognizer::TimedOut{}; }, {.description = "a person writes", .screenshotAtMs = 42},
       "Vision OCR timed out after 10s — abandoning the request and judging without OCR text"},
      {[](Desk& d) { d.recognizer->failure.emplace("no such program"); }, {.description = "a person writes", .screenshotAtMs = 42},
       "vision OCR failed (no such program)"},
      {[](Desk& d) { d.model.status = 500; }, {.ocrText = "words", .screenshotAtMs = 42}, "window description failed (http 500: "}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.line);
    Desk desk;
    c.arrange(desk);
    EXPECT_EQ(desk.read(), c.want);
    ASSERT_EQ(desk.log.size(), 1u);
    EXPECT_TRUE(desk.log[0].starts_with(c.line)) << desk.log[0];
  }
}

TEST(DeadlineBound, abandonsWhatDoesNotReturn) {
  const auto ended = std::make_shared<std::atomic<bool>>(false);
  const auto stubborn = [ended](const std::stop_token& own) {
    test::eventually([&] { return own.stop_requested(); });
    *ended = true;
    return 1;
  };
  EXPECT_EQ(DeadlineBound::run(0.02, {}, stubborn), std::nullopt);
  EXPECT_TRUE(test::eventually([&] { return ended->load(); })) << "the abandoned work was told to stop";
  EXPECT_EQ(DeadlineBound::run(10, {}, [](const std::stop_token&) { return 7; }), 7);
  EXPECT_THROW(DeadlineBound::run(10, {}, [](const std::stop_token&) -> int { throw std::runtime_error("x"); }), std::runtime_error);
  std::stop_source stop;
  stop.request_stop();
  EXPECT_THROW(DeadlineBound::run(10, stop.get_token(), stubborn), Cancelled);
}

}  // namespace
}  // namespace halvo
