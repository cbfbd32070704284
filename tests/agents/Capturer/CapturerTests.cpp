// The loop on a desktop driven by hand, with a real ffmpeg and real files.

#include <gtest/gtest.h>

#include "CaptureShared/Recording/Supervision/CapturerExit.h"
#include "Platform/Testing/FakePlatform.h"
#include "agents/Capturer/CaptureEnd.h"
#include "agents/Capturer/FramePlacement.h"
#include "agents/Capturer/MatroskaPieces.h"
#include "tests/agents/Capturer/CapturerScene.h"
#include "tests/support/SmallDisk.h"

namespace halvo {
namespace {

namespace fs = std::filesystem;
using test::Footage;

TEST(FramePlacement, decide) {
  using namespace FramePlacement;
  const struct { const char* name; std::int64_t nowMs; Decision want; } cases[] = {
      {"on time", 1'500, At{3}},       {"late by a little", 1'749, At{3}},        {"late by a frame", 1'750, At{4}},
      {"too early", 1'249, TooEarly{}}, {"set back by a frame", 300, TooEarly{}}, {"set back", 249, NewSession{}},
      {"before the start", -1, NewSession{}}, {"held up for 5 s", 6'000, At{12}},  {"asleep", 6'250, NewSession{}}};
  for (const auto& c : cases) EXPECT_EQ(decide({.startMs = 0, .lastIndex = 2}, c.nowMs), c.want) << c.name;
}

TEST(MatroskaPieces, cutsAtElementsHoweverTheBytesCome) {
  using namespace std::string_literals;
  const std::vector<std::string> pieces{"\x1A\x45\xDF\xA3\x82zz"s, "\x18\x53\x80\x67\x01\xFF\xFF\xFF\xFF\xFF\xFF\xFF"s, MatroskaPieces::padding(4096),
                                        "\x1F\x43\xB6\x75\x40\x03"s + "abc"};
  std::string all;
  for (const auto& piece : pieces) all += piece;
  for (const std::size_t step : {std::size_t{1}, std::size_t{7}, all.size()}) {
    MatroskaPieces cutter;
    std::vector<std::string> found;
    for (std::size_t at = 0; at < all.size(); at += step) {
      cutter.feed(std::string_view(all).substr(at, step));
      while (const auto piece = cutter.next()) {
        EXPECT_EQ(piece->isCluster, found.size() == 3);
        found.emplace_back(piece->bytes);
      }
    }
    EXPECT_EQ(found, pieces) << step;
  }
  MatroskaPieces cutter;
  cutter.feed("\0no stream"s);
  EXPECT_THROW(cutter.next(), std::runtime_error);
}

class CapturerLoopTest : public testing::Test, protected test::CapturerScene {
 protected:
  CapturerLoopTest() {
    probes.now.windows.emplace();
    screen.monitors = {{.number = 0, .name = "one", .bounds = {.width = 321, .height = 240}, .isPrimary = true}};
  }
  CapturerLoop::Ports ports(const fs::path& root) {
    auto made = CapturerScene::ports(probes, screen, root);
    made.filterFault = [this](bool isUnreliable) { faults.push_back(isUnreliable); };
    return made;
  }

  FakeDesktopProbes probes;
  FakeScreenCapture screen;
  std::vector<bool> faults;
};

TEST_F(CapturerLoopTest, everyInterruptionIsAGapAndANewSession) {
  CapturerLoop loop(ports(folder.path()));
  const auto sessions = [&] { return Footage(folder.path()).sessions(); };
  turns(loop, 4);
  EXPECT_EQ(sessions(), 1u);
  probes.now.session.screenLocked = true;
  turns(loop, 2);
  const auto whileLocked = Footage(folder.path()).rows().size();
  EXPECT_EQ(whileLocked, 4u) << "the rest of a session is written at its end";
  probes.now.session.screenLocked = false;
  turns(loop, 2);
  EXPECT_EQ(sessions(), 2u);
  probes.now.windows.reset();
  turns(loop, 1);
  EXPECT_FALSE(loop.filterTrust().trustworthy());
  probes.now.windows.emplace();
  turns(loop, 2);
  EXPECT_TRUE(loop.filterTrust().trustworthy());
  EXPECT_EQ(faults, (std::vector{true, false}));
  screen.monitors[0].bounds = {.width = 160, .height = 120};
  turns(loop, 2);
  screen.duringCapture = [&] { nowMs += 30'000, screen.duringCapture = nullptr; };  // asleep while the picture is taken
  EXPECT_THROW(loop.turn({}), ScreenCaptureError) << "nobody knows of when it is";
  turns(loop, 2);
  loop.endSessions();
  EXPECT_EQ(sessions(), 5u);
  const Footage footage(folder.path());
  EXPECT_EQ(footage.rows().size(), 12u);
  EXPECT_EQ(footage.frames(), 12);
}

TEST_F(CapturerLoopTest, aDeniedWindowAnywhereIsBlackAndTheRestIsNot) {
  screen.shade = 200;
  probes.now.windows = std::vector<WindowInfo>{{.ownerName = "Gedit", .bounds = {.width = 321, .height = 240}},
                                               {.ownerName = "KeePassXC", .bounds = {.x = 150, .y = 100, .width = 100, .height = 60}}};
  CapturerLoop loop(ports(folder.path()));
  turns(loop, 2);
  loop.endSessions();
  const auto picture = Footage(folder.path()).picture(0);
  EXPECT_EQ(picture.width, 320u) << "even";
  EXPECT_LT(picture.at(200, 130), 24);
  EXPECT_LT(picture.at(200, 60), 24) << "its title bar";
  EXPECT_GT(picture.at(60, 130), 180);
}

TEST_F(CapturerLoopTest, endsWithTheCodeOfWhatStoppedIt) {
  const struct { const char* name; std::function<void(CapturerLoop::Ports&)> make; std::int32_t code; } cases[] = {
      {"no display", [&](auto&) { screen.monitors.clear(); }, CapturerExit::noDisplaysAvailable},
      {"a server that is gone",
       [&](auto&) {
         screen.failure = ScreenCaptureError(ScreenCaptureError::Kind::noDisplay, "gone");
         probes.now.windows.reset();
       },
       CapturerExit::noDisplaysAvailable},
      {"refused",
       [&](auto&) { screen.failure = ScreenCaptureError(ScreenCaptureError::Kind::refused, "no"); },
       CapturerExit::screenRecordingDenied},
      {"a display that hangs",
       [&](auto& world) {
         screen.failure = ScreenCaptureError(ScreenCaptureError::Kind::timedOut, "no answer");
         world.clock = {.nowMs = [this] { return nowMs; },
                        .wait = [this](double sec, const std::stop_token&) { nowMs += static_cast<std::int64_t>(sec * 1000); }};
       },
       CapturerExit::videoSinkFailed},
      {"no ffmpeg any more", [](auto& world) { world.ffmpeg = "/usr/bin/gone"; }, CapturerExit::ffmpegMissing},
      {"an ffmpeg that ends", [](auto& world) { world.ffmpeg = "/bin/false"; }, CapturerExit::videoSinkFailed}};
  for (const auto& c : cases) {
    auto world = ports(folder.path());
    const auto monitors = screen.monitors;
    world.clock = Clock::system();
    c.make(world);
    EXPECT_EQ(CapturerLoop(world).run({}), c.code) << c.name;
    screen.monitors = monitors, screen.failure.reset(), probes.now.windows.emplace();
  }
  EXPECT_TRUE(faults.empty()) << "none of it is the filter's";
  EXPECT_EQ(Footage(folder.path()).files().size(), 1u) << "of the ffmpeg that began";
}

TEST_F(CapturerLoopTest, aFullDiskEndsItAndLosesNothingThatWasWritten) {
  const test::SmallDisk disk(262'144);
  ASSERT_TRUE(disk.isThere());
  auto world = ports(disk.path());
  screen.duringCapture = [&] { disk.fill(60'000), screen.duringCapture = nullptr; };
  CapturerLoop loop(world);
  std::int32_t code = 0;
  std::uint8_t noise = 0;
  for (int i = 0; i < 4'000 && code == 0; ++i, nowMs += 500) try {
      screen.shade = noise += 37;
      loop.turn({});
    } catch (const CaptureEnd& end) {
      code = end.code();
    }
  EXPECT_EQ(code, CapturerExit::dataRootFull);
  EXPECT_ANY_THROW(loop.endSessions());
  const auto files = [&] { return std::distance(fs::directory_iterator(disk.path() / "video/display-0"), fs::directory_iterator()); };
  const auto before = files();
  for (int i = 0; i < 2; ++i) EXPECT_EQ(CapturerLoop(world).run({}), CapturerExit::dataRootFull);
  EXPECT_EQ(files(), before) << "a restart on a full disk leaves no empty hour file";
  const Footage footage(disk.path());
  EXPECT_GT(footage.rows().size(), 0u);
  EXPECT_GE(footage.frames(), static_cast<int>(footage.rows().size()));
}

}  // namespace
}  // namespace halvo
