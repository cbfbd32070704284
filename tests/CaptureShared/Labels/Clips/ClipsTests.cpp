// From the recording of an hour to a clip of seconds.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>

#include <fmt/format.h>
#include <sys/stat.h>

#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/FFmpegResolver.h"
#include "CaptureShared/Foundation/Spawn.h"
#include "CaptureShared/Foundation/Translation.h"
#include "CaptureShared/Labels/Clips/ClipFolder.h"
#include "CaptureShared/Labels/Clips/MomentClips.h"
#include "CaptureShared/Labels/Clips/RampProxyEncoder.h"
#include "tests/CaptureShared/Recording/Recordings.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {

namespace fs = std::filesystem;
using namespace RampClipPlan;
using FrameLocator::Located;
using FrameLocator::LocateResult;
using FrameLocator::NoFrameNearby;

constexpr std::int64_t instant = 1'795'600'000'000;

/// A recording of two frames a second up to `endMs`, without those in a hole that is open at both ends.
Locate recording(std::int64_t holeFromMs = 0, std::int64_t holeToMs = 0, std::int64_t endMs = instant) {
  return [=](std::int64_t atMs, std::int64_t toleranceMs) -> LocateResult {
    auto frame = std::min<std::int64_t>(std::llround(static_cast<double>(atMs) / 500) * 500, endMs);
    if (frame > holeFromMs && frame < holeToMs) frame = frame - holeFromMs <= holeToMs - frame ? holeFromMs : holeToMs;
    if (std::abs(frame - atMs) > toleranceMs) return NoFrameNearby{};
    return Located{.file = "hour.mkv", .frameIndex = (frame - instant) / 500 + 7200, .frameRealMs = frame};
  };
}

TEST(RampClipPlan, offsets) {
  const auto with = [](int count, double tailFraction, std::int64_t tailSpanMs = 10'000) {
    return offsets({.leadUpMs = 3'600'000, .tailSpanMs = tailSpanMs, .tailFraction = tailFraction, .sourceFrameCount = count});
  };
  // From an independent computation with 50 decimal digits.
  EXPECT_EQ(with(4, 0), (std::vector<std::int64_t>{3'600'000, 1'606'548, 664'908, 220'108, 0}));
  EXPECT_EQ(with(6, 0.5), (std::vector<std::int64_t>{3'600'000, 1'209'567, 330'177, 6'667, 3'333, 0}));
  EXPECT_EQ(with(4, 1), (std::vector<std::int64_t>{7'500, 5'000, 2'500, 0}));
  EXPECT_EQ(with(4, 7), with(4, 1));
  EXPECT_EQ(with(2, 0.5), (std::vector<std::int64_t>{3'600'000, 0})) << "a single lead frame at the start";
  EXPECT_EQ((Config{.durationSeconds = 0}).outputFrameCount(), 1);
  EXPECT_EQ(Config::realtime(60'500).sourceFrameCount, 120);
  EXPECT_EQ(Config::make({.tailFraction = 0, .sourceFrameCount = 4}).minimumGapMs, 2 * (3'600'000 - 1'606'548)) << "twice the largest step";
}

TEST(RampClipPlan, holesAreShown) {
  const struct { const char* name; std::int64_t holeMs; int wantGapFrames; std::int64_t wantGapMs; } cases[] = {
      {"just under the minimum: the frame before is held", 2'999, 0, 0},
      {"exactly the minimum", 3'000, 1, 3'000},
      {"nothing near for seven looks", 8'000, 7, 8'000}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const auto locate = recording(instant - 20'000, instant - 20'000 + c.holeMs);
    const auto made = plan({.judgedInstantMs = instant, .config = Config::realtime(60'000), .locate = locate});
    EXPECT_EQ(made.gapOutputFrames(), c.wantGapFrames);
    EXPECT_EQ(made.gapSourceMs(), c.wantGapMs);
    EXPECT_EQ(made.gapSourceMs(15'000), std::max<std::int64_t>(0, c.wantGapMs - 5'000));
    EXPECT_EQ(made.frames.back().sourceRealMs, instant);
    EXPECT_EQ(made.planIndex(1'000'000), std::ssize(made.frames) - 1);
    for (std::size_t i = 0; i < made.frames.size(); ++i) EXPECT_EQ(made.planIndex(made.outputStart(static_cast<int>(i))), static_cast<int>(i));
  }
  const auto review = plan({.judgedInstantMs = instant, .locate = recording()});
  EXPECT_EQ(review.gapOutputFrames(), 0) << "the ramp's own steps are no holes";
  EXPECT_EQ(review.outputFrameCount(), 300);
}

TEST(RampClipPlan, sharesTheClipsFrames) {
  const Locate seconds = [](std::int64_t atMs, std::int64_t) -> LocateResult {
    if (atMs == instant - 18'000 || atMs == instant - 17'000) return NoFrameNearby{};
    return Located{.file = "hour.mkv", .frameIndex = (atMs - instant) / 1000, .frameRealMs = atMs};
  };
  const struct { const char* name; double durationSeconds; std::int64_t minimumGapMs; std::string want; } cases[] = {
      {"36 for 24: what is dropped passes to the next frame", 3.6, 60'000, "2121242121212121212121"},
      {"or to the gap", 3.6, 3'000, "21212g312121212121212121"},
      {"12 for 24: the last one shows", 1.2, 60'000, "1010111010101010101011"}};
  for (const auto& c : cases) {
    const Config config{.tailSpanMs = 24'000, .tailFraction = 1, .sourceFrameCount = 24, .durationSeconds = c.durationSeconds,
                        .outputFps = 10, .minimumGapMs = c.minimumGapMs};
    std::string holds;
    for (const auto& frame : plan({.judgedInstantMs = instant, .config = config, .locate = seconds}).frames)
      holds += (frame.isGap() ? "g" : "") + std::to_string(frame.holdFrames);
    EXPECT_EQ(holds, c.want) << c.name;
  }
}

TEST(RampClipPlan, findsItsFramesUnderTheRoot) {
  test::TemporaryFolder root;
  const auto session = Clock::system().nowMs();  // a file's birth can't be set
  std::string rows;
  for (int i = 0; i <= 120; ++i) rows += fmt::format("{},,,{},{}\n", instant - 60'000 + i * 500, i, session);
  root.write("video/display-0/frame_timestamps.csv", rows);
  root.write(fmt::format("video/display-0/segments-{}.csv", session), "2026-11-25T10.mkv,0,121\n");
  root.write("video/display-0/2026-11-25T10.mkv", std::string(4096, 'x'));
  const auto made = plan({.judgedInstantMs = instant, .config = Config::realtime(60'000), .root = root.path()});
  EXPECT_EQ(made.frames.front().sourceRealMs, instant - 59'500);
  EXPECT_EQ(made.gapShare(), 0);
  const auto isRenderable = MomentClips::isRenderable(root.path());
  EXPECT_TRUE(isRenderable(instant + 2'000));
  EXPECT_FALSE(isRenderable(instant + 2'001)) << "there would be no clip of it";
}

TEST(RampClipPlan, endsOnWhatTheClassifierSaw) {
  const auto frames = [](std::vector<std::int64_t> at) -> Locate {
    return [at](std::int64_t atMs, std::int64_t toleranceMs) -> LocateResult {
      const auto nearest = *std::ranges::min_element(at, {}, [&](std::int64_t one) { return std::abs(one - atMs); });
      if (std::abs(nearest - atMs) > toleranceMs) return NoFrameNearby{};
      return Located{.file = "hour.mkv", .frameIndex = nearest, .frameRealMs = nearest};
    };
  };
  const auto config = Config::realtime(10'000);
  const auto why = [&](const Locate& locate) {
    try {
      return std::to_string(plan({.judgedInstantMs = instant, .config = config, .locate = locate}).frames.back().sourceRealMs - instant);
    } catch (const PlanError& error) {
      return std::string(error.what());
    }
  };
  EXPECT_EQ(why(frames({instant - 400, instant + 300})), "Only 5 of the lead-up frames resolved (need 20) — capture was mostly not running.");
  std::vector<std::int64_t> lead;
  for (std::int64_t at = instant - 10'400; at < instant; at += 500) lead.push_back(at);
  lead.push_back(instant + 300);
  EXPECT_EQ(why(frames(lead)), "-400");
  EXPECT_EQ(why(frames({instant - 2'001})), "No capture frame near the judged instant — capture wasn't running then.");
  EXPECT_TRUE(why(frames({instant + 300})).starts_with("Only 4 of")) << "found, though only behind the instant";
  lead.erase(lead.end() - 3, lead.end() - 1);
  EXPECT_EQ(why(frames(lead)), "-1400") << "the nearest is the later one at first";
  for (const auto& frame : plan({.judgedInstantMs = instant, .config = config, .locate = frames(lead)}).frames)
    EXPECT_LE(frame.sourceRealMs, instant - 1400);
  std::vector<std::int64_t> asked;
  const auto late = [&](std::ptrdiff_t times) -> Locate {
    asked.clear();
    return [&asked, times, whole = recording()](std::int64_t atMs, std::int64_t toleranceMs) -> LocateResult {
      asked.push_back(atMs - instant);
      return std::ssize(asked) > times ? whole(atMs, toleranceMs) : Located{.file = "hour.mkv", .frameRealMs = instant + 10};
    };
  };
  EXPECT_EQ(why(late(4)), "-2000");
  asked.resize(5);
  EXPECT_EQ(asked, (std::vector<std::int64_t>{0, -490, -990, -1490, -1990}));
  EXPECT_EQ(why(late(5)), "10") << "four retries";
  EXPECT_EQ(why([](auto, auto) { return FrameLocator::UnsupportedEra{}; }),
            "This moment predates the frame-index sidecar columns (2026-07-07), so no frame can be resolved for it.");
  int looks = 0;
  const auto only = [&](int found) -> Locate {
    looks = 0;
    return [&looks, found, whole = recording()](std::int64_t at, std::int64_t tolerance) -> LocateResult {
      return ++looks == 1 || looks > 21 - found ? whole(at, tolerance) : NoFrameNearby{};
    };
  };
  EXPECT_TRUE(why(only(19)).starts_with("Only 19 of"));
  EXPECT_EQ(why(only(20)), "0");
}

/// An hour file of ours, from a source of ffmpeg's with the frame's number as its brightness.
struct RampProxyEncoderTest : testing::Test {
  std::string run(const std::string& program, const std::vector<std::string>& words) {
    const auto output = Spawn::capture(program, words, "", 60);
    return output && output->exitStatus == 0 ? output->standardOutput : "failed";
  }
  void record(std::size_t keptBytes = std::string::npos, int sec = 20) {
    const auto source = fmt::format("color=c=black:s=320x180:r=2:d={},geq=lum='20+5*mod(N,40)':cb=128:cr=128", sec);
    run(ffmpeg, {"-v", "error", "-y", "-f", "lavfi", "-i", source, "-g", "4", (folder.path() / "plain.mkv").string()});
    test::seal(hour, {readFile(folder.path() / "plain.mkv").substr(0, keptBytes)});
  }
  /// How bright each frame of the clip is in its corner, where no text is.
  std::vector<int> brightness(const fs::path& file) {
    std::vector<int> found;
    const auto corner = "crop=4:4:8:8,scale=1:1,format=gray";
    const auto bytes = run(ffmpeg, {"-v", "error", "-i", file.string(), "-vf", corner, "-f", "rawvideo", "-"});
    for (const unsigned char pixel : bytes) found.push_back(pixel);
    return found;
  }
  RampProxyEncoder::Setup setup() {
    return {.ffmpeg = ffmpeg, .keyForGeneration = [](auto) { return test::keyOf('k'); }, .pixelWidth = 320, .pixelHeight = 180};
  }
  Frame shown(std::int64_t number, int hold) const { return {.file = hour, .frameIndex = 100 + number, .holdFrames = hold, .segmentStartFrame = 100}; }

  test::TemporaryFolder folder;
  std::string ffmpeg = FFmpegResolver::resolve(processEnvironment());
  fs::path hour = folder.path() / "2026-11-25T10.mkv", clip = folder.path() / "clip.mp4";
};

TEST_F(RampProxyEncoderTest, makesAClipOfASealedHour) {
  record();
  const Plan made{.frames = {shown(3, 2), Frame::gap(0, 3), shown(30, 1)}, .outputFps = 10, .outputStarts = {0, 2, 5}};
  const auto cost = RampProxyEncoder::encode(made, clip, setup());
  EXPECT_EQ(fmt::format("{} {} {} {}", cost.frameCount, cost.framesRequested, cost.sourceFrameCount, cost.sourceFramesRequested), "6 6 2 2");
  EXPECT_EQ(static_cast<std::uintmax_t>(cost.byteCount), fs::file_size(clip));
  const auto seen = brightness(clip);
  ASSERT_EQ(seen.size(), 6u);
  const int want[] = {35, 35, 50, 50, 50, 170};  // 20 + 5 n; the card's grey
  for (std::size_t i = 0; i < 6; ++i) EXPECT_NEAR(seen[i], (want[i] - 16) * 255 / 219, 12) << i;
  struct stat status {};
  ASSERT_EQ(::stat(clip.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600u);
  EXPECT_EQ(std::distance(fs::directory_iterator(folder.path()), {}), 3) << "no single frame is left";
}

TEST_F(RampProxyEncoderTest, aCardTakesWhateverTextATranslationHas) {
  record();
  const Plan made{.frames = {shown(3, 1), Frame::gap(0, 2), shown(30, 1)}, .outputFps = 10, .outputStarts = {0, 1, 3}};
  setTranslator([](const std::string&) -> std::string { return R"(l'été: 100 % de 'rien', [a];b=c\d\' {} s)"; });
  EXPECT_NO_THROW(RampProxyEncoder::encode(made, clip, setup()));
  setTranslator(nullptr);
}

TEST_F(RampProxyEncoderTest, takesMoreFramesThanAFilterHasTerms) {
  constexpr int count = 310;
  record(std::string::npos, count / 2);
  Plan made{.outputFps = 10};
  for (int i = 0; i < count; ++i) made.frames.push_back(shown(i, 1)), made.outputStarts.push_back(i);
  EXPECT_EQ(RampProxyEncoder::encode(made, clip, setup()).sourceFrameCount, count);
  const auto seen = brightness(clip);
  ASSERT_EQ(seen.size(), static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) EXPECT_NEAR(seen[static_cast<std::size_t>(i)], (4 + 5 * (i % 40)) * 255 / 219, 12) << i;
}

TEST_F(RampProxyEncoderTest, whatCantBeReadIsACardOrAnError) {
  using Kind = RampProxyEncoder::EncodeError::Kind;
  const auto failure = [&](const Plan& made, const RampProxyEncoder::Setup& with) -> std::optional<Kind> {
    try {
      RampProxyEncoder::encode(made, clip, with);
      return std::nullopt;
    } catch (const RampProxyEncoder::EncodeError& error) {
      EXPECT_FALSE(fs::exists(clip));
      return error.kind();
    }
  };
  const Plan two{.frames = {shown(0, 1), shown(39, 1)}, .outputFps = 10, .outputStarts = {0, 1}};
  auto without = setup();
  without.ffmpeg = folder.path() / "none";
  record(0);
  EXPECT_EQ(failure({}, setup()), Kind::emptyPlan);
  EXPECT_EQ(failure(two, without), Kind::writerSetupFailed);
  EXPECT_EQ(failure(two, setup()), Kind::noDecodableFrames);
  record(fs::file_size(folder.path() / "plain.mkv") / 2);
  const auto cost = RampProxyEncoder::encode(two, clip, setup());
  EXPECT_EQ(fmt::format("{} {} {}", cost.frameCount, cost.sourceFrameCount, cost.sourceFramesRequested), "2 1 2");
}

TEST(ClipFolder, goesWithItsOwnerOrAfterIt) {
  const test::TemporaryFolder temp;
  const Environment environment{{"TMPDIR", temp.path().string()}};
  fs::path kept;
  {
    const ClipFolder one(environment);
    kept = one.path();
    std::ofstream(kept / "moment.mp4") << "x";
    fs::create_directories(kept.parent_path() / "abandoned/frames");
    const ClipFolder other(environment);
    EXPECT_FALSE(fs::exists(kept.parent_path() / "abandoned")) << "a killed process left it";
    EXPECT_TRUE(fs::exists(kept / "moment.mp4")) << "another review is under way";
    EXPECT_EQ(fs::status(kept).permissions(), fs::perms::owner_all);
  }
  EXPECT_TRUE(fs::is_empty(kept.parent_path()));
}

}  // namespace
}  // namespace halvo
