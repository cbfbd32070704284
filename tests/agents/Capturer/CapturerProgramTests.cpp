// The program itself on a real display that shows a clock, killed at random.

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <random>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Recording/Supervision/CapturerExit.h"
#include "Platform/Linux/TesseractRecognizer.h"
#include "tests/agents/Capturer/CapturerScene.h"
#include "tests/agents/Capturer/Processes.h"
#include "tests/support/Eventually.h"
#include "tests/support/TestWindow.h"
#include "tests/support/XServer.h"

namespace halvo {
namespace {

namespace fs = std::filesystem;
using test::childrenOf;
using test::eventually;
using test::Footage;
using test::isRunning;

class CapturerProgramTest : public testing::Test, protected test::CapturerHome {
 protected:
  test::ChildProcess start(const Environment& world) const {
    return test::ChildProcess::logged(HALVO_BIN "/Capturer", {}, world, folder.path() / "log");
  }
};

TEST_F(CapturerProgramTest, saysWhyItCannotStart) {
  const test::XServer x({.width = 320, .height = 240, .hasWindowManager = false});
  auto world = environment(":97");
  EXPECT_EQ(start(world).wait(10), CapturerExit::noDisplaysAvailable);
  world["DISPLAY"] = x.display();
  EXPECT_EQ(start(world).wait(10), CapturerExit::videoKeyMissing);
  world["AMBITCAP_FFMPEG"] = "/nonexistent";
  EXPECT_EQ(start(world).wait(10), CapturerExit::ffmpegMissing);
}

/// HALVO_KILLS: how many, and then every row is read; without it as many as fit in 20 seconds, and about ten rows.
TEST_F(CapturerProgramTest, killedAtRandomEveryRowStillFindsItsFrame) {
  const test::XServer x({.width = 640, .height = 360});
  const auto key = makeKey();
  const auto world = environment(x.display());
  const char* wanted = std::getenv("HALVO_KILLS");
  const int mostKills = wanted ? std::atoi(wanted) : 1'000;
  const auto endMs = Clock::system().nowMs() + (wanted ? 3'600'000 : 20'000);
  std::mt19937 random(std::random_device{}());
  std::vector<std::pair<std::int64_t, int>> shown;  // since when, which number
  std::unique_ptr<test::TestWindow> window;
  const auto tick = [&] {
    const int number = 1000 + static_cast<int>(shown.size());
    auto next = std::make_unique<test::TestWindow>(x.display(), test::TestWindow::Options{.title = "clock", .className = "Clock", .x = 40, .y = 60,
                                                   .width = 560, .height = 240, .isOverrideRedirect = true, .text = std::to_string(number), .textScale = 4});
    shown.emplace_back(Clock::system().nowMs(), number);
    window = std::move(next);
  };
  int kills = 0;
  for (; kills < mostKills && Clock::system().nowMs() < endMs; ++kills) {
    auto capturer = start(world);
    const auto atMs = Clock::system().nowMs() + std::uniform_int_distribution(500, 6'000)(random);
    while (Clock::system().nowMs() < atMs) {
      tick();
      eventually([&] { return Clock::system().nowMs() >= atMs; }, 0.7);
    }
    const auto encoders = childrenOf(capturer.pid(), "ffmpeg");
    capturer.signal(SIGKILL);
    capturer.wait(5);
    EXPECT_TRUE(eventually([&] { return std::ranges::none_of(encoders, isRunning); }, 2)) << "no orphan";
  }
  const Footage footage(root, key);
  const auto rows = footage.rows();
  EXPECT_GT(static_cast<int>(rows.size()), kills / 2) << "most runs record something";
  EXPECT_GE(footage.frames(), static_cast<int>(rows.size())) << "every file plays";
  TesseractRecognizer recognizer;
  int looked = 0, read = 0;
  for (std::size_t i = 0; i < rows.size(); i += wanted ? 1 : rows.size() / 10 + 1, ++looked) {
    const auto outcome = recognizer.recognize(footage.png(rows[i]), 20, {});
    const auto* text = std::get_if<TextRecognizer::Recognized>(&outcome);
    const auto number = text ? std::atoi(text->text.c_str()) : 0;
    // What was on the screen from half a second before to a frame's own length behind: the tick may fall in between.
    bool isRight = false;
    for (std::size_t n = 0; n < shown.size(); ++n) {
      const auto until = n + 1 < shown.size() ? shown[n + 1].first : rows[i].realTsMs + 1;
      isRight |= shown[n].second == number && shown[n].first - 400 <= rows[i].realTsMs && rows[i].realTsMs <= until + 400;
    }
    EXPECT_TRUE(isRight || number < 1000) << "row " << i << " at " << rows[i].realTsMs << " shows " << number;
    read += number >= 1000;
  }
  EXPECT_GT(read, looked / 2) << "the clock can be read";
  EXPECT_TRUE(fs::is_empty(folder.path() / "tmp"));
  for (const auto& file : footage.files()) EXPECT_TRUE(VideoEncryptionFormat::isEncrypted(file)) << file;
  std::printf("%d kills, %zu rows, %d of %d read\n", kills, rows.size(), read, looked);
}

TEST_F(CapturerProgramTest, endsInASecondAndAMomentIsFoundAsAPictureAndAsAFileThatPlays) {
  const test::XServer x({.width = 640, .height = 360});
  const test::TestWindow window(x.display(), {.title = "clock", .className = "Clock", .x = 40, .y = 60, .width = 560, .height = 240,
                                              .isOverrideRedirect = true, .text = "1023", .textScale = 4});
  const auto key = makeKey();
  const auto world = environment(x.display());
  auto capturer = start(world);
  const Footage footage(root, key);
  ASSERT_TRUE(eventually([&] { return hasRecorded(footage, 4); }, 20));
  const auto encoder = childrenOf(capturer.pid(), "ffmpeg").at(0);
  capturer.signal(SIGTERM);
  EXPECT_EQ(capturer.wait(1), 0);
  EXPECT_FALSE(isRunning(encoder));
  EXPECT_EQ(footage.frames(), footage.rows().back().frameIndexInSession.value() + 1) << "the last frame has its row";
  const auto at = Calendar::named("America/New_York").fields(footage.rows()[2].realTsMs);
  const auto moment = fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02}", at.year, at.month, at.day, at.hour, at.minute, at.second);
  const auto halvo = [&](std::vector<std::string> words) {
    return test::ChildProcess(std::string(HALVO_BIN) + "/halvo", words, world).wait(30);
  };
  const auto picture = folder.path() / "moment.png", film = folder.path() / "moment.mp4";
  ASSERT_EQ(halvo({"frame", moment, "-o", picture}), 0);
  EXPECT_EQ(fs::status(picture).permissions(), fs::perms::owner_read | fs::perms::owner_write);
  const auto outcome = TesseractRecognizer().recognize(readFile(picture), 20, {});
  const auto* text = std::get_if<TextRecognizer::Recognized>(&outcome);
  EXPECT_TRUE(text && text->text.find("1023") != std::string::npos) << (text ? text->text : "nothing");
  ASSERT_EQ(halvo({"play", moment, "-o", film}), 0);
  EXPECT_EQ(test::ChildProcess("/usr/bin/ffprobe", {"-v", "error", film.string()}, world).wait(20), 0);
  const auto sealed = footage.files().at(0);
  const auto middle = static_cast<std::streamoff>(fs::file_size(sealed) / 2);
  std::fstream file(sealed, std::ios::in | std::ios::out | std::ios::binary);
  const char turned = static_cast<char>(file.seekg(middle).get() ^ 1);
  file.seekp(middle).put(turned);
  file.close();
  const auto cut = folder.path() / "cut.mp4";
  EXPECT_EQ(halvo({"play", moment, "-o", cut}), 1) << "a damaged recording is not half a film";
  EXPECT_FALSE(fs::exists(cut));
  EXPECT_EQ(halvo({"frame", "2001-01-01 00:00", "-o", folder.path() / "none.png"}), 1);
  EXPECT_FALSE(fs::exists(folder.path() / "none.png"));
  EXPECT_TRUE(fs::is_empty(folder.path() / "tmp")) << "both clean up behind themselves";
}

}  // namespace
}  // namespace halvo
