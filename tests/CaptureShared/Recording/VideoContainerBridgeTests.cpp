#include <gtest/gtest.h>

#include <thread>

#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/Spawn.h"
#include "CaptureShared/Recording/VideoContainerBridge.h"
#include "tests/CaptureShared/Recording/Recordings.h"
#include "tests/support/Eventually.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {

namespace fs = std::filesystem;
using BridgeError = VideoContainerBridge::BridgeError;

std::string outputOf(const std::string& program, const std::vector<std::string>& arguments) {
  return Spawn::capture(program, arguments, "", 60).value().standardOutput;
}

/// Two seconds of a moving picture, as the recorder's encoder gives them.
const std::string matroska = outputOf("ffmpeg", {"-v", "error", "-f", "lavfi", "-i", "testsrc=duration=2:size=64x48:rate=2", "-c:v", "libx264",
                                                 "-f", "matroska", "-"});

class ContainerBridge : public testing::Test {
 protected:
  ContainerBridge() { test::seal(sealed_, {matroska.substr(0, 1000), matroska.substr(1000)}, 2); }

  VideoContainerBridge bridge() const {
    return VideoContainerBridge(environment_, [](auto generation) {
      if (generation != 2) throw std::runtime_error("another generation");
      return test::keyOf('k');
    });
  }
  /// In the place of ffmpeg from now on.
  void script(const std::string& text) {
    folder_.write("ffmpeg", "#!/bin/sh\n" + text);
    fs::permissions(folder_.path() / "ffmpeg", fs::perms::owner_all);
    environment_["AMBITCAP_FFMPEG"] = (folder_.path() / "ffmpeg").string();
  }
  void expectFailure(const fs::path& source, const std::string& text) const {
    try {
      bridge().playableURL(source, 0);
      ADD_FAILURE() << "no error";
    } catch (const BridgeError& error) {
      EXPECT_TRUE(std::string_view(error.what()).starts_with(text)) << error.what();
    }
    EXPECT_EQ(cached(), 0);
  }
  long cached() const {
    std::error_code none;
    return std::distance(fs::directory_iterator(bridge().remuxCacheDir(0), none), {});
  }
  static std::string frames(const fs::path& file) {
    return outputOf("ffprobe", {"-v", "error", "-count_frames", "-show_entries", "stream=codec_name,nb_read_frames", "-of", "csv=p=0", file});
  }

  test::TemporaryFolder folder_;
  const fs::path sealed_ = folder_.path() / "07.mkv";
  Environment environment_{{"TMPDIR", folder_.path().string()}};
};

TEST_F(ContainerBridge, makesACopyThatPlays) {
  folder_.write("plain.mkv", matroska);
  for (const auto& source : {sealed_, folder_.path() / "plain.mkv"}) {
    const auto copy = bridge().playableURL(source, 3);
    EXPECT_EQ(copy, folder_.path() / "LarkVideoRemux/display-3" / (source.filename().string() + ".mp4"));
    EXPECT_EQ(frames(copy), "h264,4\n");
    EXPECT_EQ(fs::status(copy).permissions(), fs::perms(0600));
    EXPECT_EQ(fs::status(copy.parent_path()).permissions(), fs::perms(0700));
    EXPECT_FALSE(bridge().needsRemux(source, 3));
    EXPECT_TRUE(bridge().needsRemux(source, 4));
  }
  folder_.write("07.mkv", "HALVOVE2");  // the copy stands, whatever becomes of its source
  EXPECT_EQ(frames(bridge().playableURL(sealed_, 3)), "h264,4\n");
  EXPECT_EQ(bridge().playableURL("/nowhere/x.MOV", 3), "/nowhere/x.MOV");
  EXPECT_FALSE(bridge().needsRemux("/nowhere/x.MOV", 3));
  // Of a cut recording it plays what there is.
  test::seal(sealed_, {matroska.substr(0, matroska.size() - 200), matroska.substr(matroska.size() - 200)}, 2);
  fs::resize_file(sealed_, fs::file_size(sealed_) - 10);
  EXPECT_TRUE(frames(bridge().playableURL(sealed_, 0)).starts_with("h264,"));
}

TEST_F(ContainerBridge, saysWhatWentWrongAndLeavesNothing) {
  const std::string unread = "Couldn't read 07.mkv into a playable container: ";
  const auto longest = folder_.path() / (std::string(251, 'n') + ".mkv");  // with ".mp4" behind it no file's name
  test::seal(longest, {matroska}, 2);
  expectFailure(longest, "Couldn't read " + longest.filename().string() + " into a playable container: couldn't publish the remuxed copy: ");
  expectFailure("/nowhere/07.mkv", "No video file at /nowhere/07.mkv.");
  test::seal(sealed_, {matroska}, 1);
  expectFailure(sealed_, "Couldn't decrypt: another generation");
  test::seal(sealed_, {matroska}, 2, 'w');
  expectFailure(sealed_, "Couldn't decrypt: chunk failed AES-GCM authentication");
  test::seal(sealed_, {}, 2);
  expectFailure(sealed_, unread + "[matroska,webm @ ");  // ffmpeg's own words
  script("echo first >&2; echo second >&2; echo >&2; echo third >&2; exit 3");
  expectFailure(sealed_, unread + "second; third");
  script("exit 3");
  expectFailure(sealed_, unread + "ffmpeg exit 3");
  test::seal(sealed_, {std::string(4 << 20, 'x')}, 2);  // more than a pipe holds
  expectFailure(sealed_, "Couldn't decrypt: Broken pipe");
  environment_["AMBITCAP_FFMPEG"] = "/nowhere/ffmpeg";
  expectFailure(sealed_, "ffmpeg not found — install it or set AMBITCAP_FFMPEG");
}

TEST_F(ContainerBridge, stopsWhenAskedTo) {
  script("exec sleep 300");
  std::stop_source stop;
  const std::jthread asking([&] { test::eventually([&] { return cached() == 1; }), stop.request_stop(); });
  EXPECT_THROW(bridge().playableURL(sealed_, 0, stop.get_token()), Cancelled);
  EXPECT_EQ(cached(), 0);
}

}  // namespace
}  // namespace halvo
