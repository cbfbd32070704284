// The real programs while a person pauses, resumes and chooses a quality.

#include <csignal>

#include <gtest/gtest.h>

#include "CaptureShared/Recording/Supervision/CaptureFaultStore.h"
#include "tests/agents/Capturer/CapturerScene.h"
#include "tests/agents/Capturer/Processes.h"
#include "tests/support/Eventually.h"
#include "tests/support/XServer.h"

namespace halvo {
namespace {

namespace fs = std::filesystem;
using test::childrenOf;
using test::eventually;
using test::Footage;
using test::isRunning;

TEST(RecordingSwitch, isObeyedToTheLastByte) {
  const test::CapturerHome home;
  const auto& root = home.root;
  const test::XServer x({.width = 1600, .height = 900});
  const auto world = home.environment(x.display());
  const fs::path bin(HALVO_BIN);
  const Footage footage(root, home.makeKey());
  const auto says = [&](std::vector<std::string> words) {
    words.insert(words.begin(), "recording");
    EXPECT_EQ(test::ChildProcess(bin / "halvo", words, world).wait(20), 0) << words.back();
  };
  const auto bytes = [&] {
    auto sum = fs::file_size(root / "video/display-0/frame_timestamps.csv");
    for (const auto& file : footage.files()) sum += fs::file_size(file);
    return sum;
  };
  /// Waits for two frames in a further file; which row the last of them has.
  const auto record = [&](std::size_t files) {
    EXPECT_TRUE(eventually([&] { return home.hasRecorded(footage, 0) && footage.files().size() == files; }, 25));
    const auto before = footage.rows().size();
    EXPECT_TRUE(eventually([&] { return footage.rows().size() >= before + 2; }, 25));
    return footage.rows().size() - 1;
  };

  test::ChildProcess supervisor(bin / "Supervisor", {}, world);
  const auto full = record(1);
  const auto capturer = childrenOf(supervisor.pid(), "Capturer").at(0), ffmpeg = childrenOf(capturer, "ffmpeg").at(0);
  says({"pause"});
  ASSERT_TRUE(eventually([&] { return !isRunning(capturer) && !isRunning(ffmpeg); }, 3));
  const auto rest = bytes();
  const auto sampled = fs::last_write_time(root / "signals.sqlite-wal");
  EXPECT_EQ(test::ChildProcess(bin / "Capturer", {}, world).wait(10), 0) << "by hand it records nothing either";
  EXPECT_TRUE(eventually([&] { return fs::last_write_time(root / "signals.sqlite-wal") > sampled + std::chrono::seconds(4); }, 20))
      << "the sampler goes on";
  EXPECT_EQ(bytes(), rest);
  EXPECT_TRUE(childrenOf(supervisor.pid(), "Capturer").empty());
  says({"quality", "compact"});
  says({"resume"});
  const auto compact = record(2);
  EXPECT_NE(readFile(root / "manifest.json").find("\"displayWidthTarget\": 1280"), std::string::npos);
  says({"quality", "full"});
  const auto fullAgain = record(3);
  supervisor.signal(SIGTERM);
  EXPECT_EQ(supervisor.wait(4), 0);
  EXPECT_FALSE(fs::exists(CaptureFaultStore::path(world)));
  for (const auto& [row, width, height] : {std::tuple{full, 1600u, 900u}, {compact, 1280u, 720u}, {fullAgain, 1600u, 900u}})
    EXPECT_EQ(std::pair(footage.picture(row).width, footage.picture(row).height), std::pair(width, height));
}

}  // namespace
}  // namespace halvo
