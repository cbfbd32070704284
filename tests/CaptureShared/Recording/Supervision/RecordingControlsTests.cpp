#include <gtest/gtest.h>

#include <sys/stat.h>

#include "CaptureShared/Recording/Supervision/RecordingControlsWatch.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {

using Quality = RecordingControls::Quality;
constexpr std::int64_t nowMs = 1'800'000'000'000;  // 8:00 on January 15, 2027

TEST(RecordingControls, whatCannotBeReadIsAPause) {
  constexpr const char* broken = "paused: recording-controls.json can't be read";
  const std::pair<const char*, const char*> cases[] = {
      {R"({"quality":"full","paused_at_ms":null,"more":1})", "not paused"},
      {R"({"paused_until_ms":1800086400000})", "paused until Jan 16, 8:00"},
      {R"({"paused_at_ms":1799999940000,"paused_until_ms":1800000000001})", "paused until 8:00"},
      {R"({"paused_at_ms":1799999940000,"paused_until_ms":1800000000000})", "not paused"},
      {R"({"paused_at_ms":1799999940000})", "paused since 7:59"},
      {"", broken}, {R"({"paused_at_ms":17999)", broken}, {R"({"paused_at_ms":"soon"})", broken},
      {R"({"paused_until_ms":1e300})", broken}, {R"({"quality":"tiny"})", broken}};
  const test::TemporaryFolder root;
  for (const auto& [text, words] : cases) {
    root.write("recording-controls.json", text);
    const auto controls = RecordingControls::read(root.path());
    EXPECT_EQ(controls.words(nowMs, Calendar::utc()), words) << text;
    EXPECT_EQ(controls.isPaused(nowMs), words != std::string("not paused")) << text;
    EXPECT_EQ(controls.with(Quality::compact, nowMs).isPaused(nowMs), controls.isPaused(nowMs)) << "a quality resumes nothing: " << text;
  }
}

TEST(RecordingControls, aChangeIsPrivateAndSeen) {
  const test::TemporaryFolder root;
  RecordingControlsWatch watch;
  EXPECT_EQ(watch.look(root.path()), RecordingControls{});
  const auto paused = RecordingControls{.quality = Quality::compact}.paused(nowMs, std::nullopt);
  paused.write(root.path());
  EXPECT_EQ(watch.look(root.path()), paused);
  struct stat info {};
  ::stat(RecordingControls::path(root.path()).c_str(), &info);
  EXPECT_EQ(info.st_mode & 0777, 0600u);
  std::filesystem::remove(RecordingControls::path(root.path()));
  std::filesystem::create_directory(RecordingControls::path(root.path()));
  EXPECT_TRUE(watch.look(root.path()).isPaused(nowMs));
}

}  // namespace
}  // namespace halvo
