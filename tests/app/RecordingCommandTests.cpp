// `halvo recording` as a person meets it.

#include <cstdlib>

#include <fcntl.h>
#include <gtest/gtest.h>

#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Recording/Supervision/RecordingControls.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {

TEST(RecordingCommand, pausesResumesAndChooses) {
  const test::TemporaryFolder folder;
  const auto root = folder.path() / "data";
  std::string said;
  const auto run = [&](std::vector<std::string> words) {
    words.insert(words.begin(), "recording");
    const FileHandle out(::open((folder.path() / "out").c_str(), O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0600));
    test::ChildProcess command(std::string(HALVO_BIN) + "/halvo", words,
                               {{"HOME", folder.path()}, {"TZ", "Etc/UTC"}, {"AMBITCAP_DATA_ROOT", root}}, {{out.fd(), 1}, {out.fd(), 2}});
    const auto status = command.wait(20).value_or(-1);
    said = readFile(folder.path() / "out");
    return status;
  };
  EXPECT_EQ(run({"pause"}), 1) << "there's no data root";
  std::filesystem::create_directory(root);
  EXPECT_EQ(run({}), 0);
  EXPECT_EQ(said, "Not paused, but nothing has been recorded yet\nquality: full, as large as the display\n");
  EXPECT_EQ(run({"quality", "compact"}), 0);
  for (const auto& [length, minutes] : {std::pair{"15m", 15}, {"1h30m", 90}, {"until 3:07am", 0}, {"until 03:07", 0}}) {
    EXPECT_EQ(run({"pause", length}), 0) << said;
    EXPECT_TRUE(said.starts_with("Recording paused until ")) << said;
    const auto controls = RecordingControls::read(root);
    const auto end = controls.pausedUntilMs.value_or(0), lasts = end - controls.pausedAtMs.value_or(0);
    EXPECT_TRUE(minutes ? std::abs(lasts - minutes * 60'000) < 20'000 : end / 60'000 % 1'440 == 187 && lasts <= 86'400'000) << said;
  }
  for (const auto* length : {"soon", "0m", "until 25:00", "until 13pm", "until 16"}) EXPECT_EQ(run({"pause", length}), 1) << length;
  EXPECT_EQ(run({"pause"}), 0);
  EXPECT_TRUE(said.starts_with("Recording paused since ")) << said;
  EXPECT_EQ(run({"resume"}), 0);
  EXPECT_EQ(RecordingControls::read(root), RecordingControls{.quality = RecordingControls::Quality::compact});
}

}  // namespace
}  // namespace halvo
