#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

#include "CaptureShared/Recording/Location/FrameLocator.h"

/// Turns the hour before a moment into a clip of seconds: the far past goes by fast, and the last stretch plays in real time. Pure but for
/// the locator: it decides which recorded frame is shown for how many frames of the clip.
namespace halvo::RampClipPlan {

inline constexpr int minimumFrames = 20;  ///< source moments that must be found

struct Config {
  std::int64_t leadUpMs = 3'600'000;  ///< how far before the judged instant the clip starts
  std::int64_t tailSpanMs = 10'000;   ///< how long before the instant the even tail starts
  double tailFraction = 1.0 / 3;      ///< the share of source moments spent on the tail; above 1 counts as 1
  int sourceFrameCount = 300;         ///< how many source moments are looked up
  double durationSeconds = 30;
  double outputFps = 10;
  std::int64_t minimumGapMs = 0;      ///< a hole at least this long is shown
  std::int64_t toleranceMs = 2'000;   ///< how far a frame may lie from the wanted moment

  /// What is left open: `sourceFrameCount` is then the clip's frames, at least 20; `minimumGapMs` twice the largest planned step, since
  /// in a ramp neighbours are minutes apart without a hole.
  struct Draft {
    std::int64_t leadUpMs = 3'600'000;
    std::int64_t tailSpanMs = 10'000;
    double tailFraction = 1.0 / 3;
    std::optional<int> sourceFrameCount = {};
    double durationSeconds = 30;
    double outputFps = 10;
    std::optional<std::int64_t> minimumGapMs = {};
    std::int64_t toleranceMs = 2'000;
  };
  static Config make(const Draft& draft);
  /// The last third of the clip plays its 10 s of real time in 10 s.
  static Config review() { return make({}); }
  /// Without a ramp: two frames a second, as they were recorded.
  static Config realtime(std::int64_t spanMs);

  int outputFrameCount() const;  ///< at least 1
  bool operator==(const Config&) const = default;
};

/// Milliseconds before the judged instant, oldest first and 0 last: `sourceFrameCount` of them, and one more without a tail.
std::vector<std::int64_t> offsets(const Config& config);

struct Frame {
  std::optional<std::filesystem::path> file = {};  ///< absent: a gap
  std::int64_t frameIndex = 0;                     ///< within the recording session
  std::int64_t sourceRealMs = 0;                   ///< when it was captured; of a gap, the frame before it
  int holdFrames = 0;                              ///< how many frames of the clip it is shown for
  std::int64_t segmentStartFrame = 0;              ///< the session's frame that the file begins with

  static Frame gap(std::int64_t atMs, int holdFrames) { return {.sourceRealMs = atMs, .holdFrames = holdFrames}; }
  bool isGap() const { return !file; }
  std::int64_t frameInFile() const { return frameIndex - segmentStartFrame; }
  bool operator==(const Frame&) const = default;
};

struct Plan {
  std::vector<Frame> frames = {};
  double outputFps = 10;
  std::int64_t judgedInstantMs = 0;
  std::vector<int> outputStarts = {};  ///< for each frame the frame of the clip at which it starts

  int outputFrameCount() const;
  double durationSeconds() const;
  /// Which of `frames` is shown; clamped to the clip. -1 without frames.
  int planIndex(int forOutputFrame) const;
  int outputStart(int of) const { return outputStarts.at(static_cast<std::size_t>(of)); }
  int gapOutputFrames() const;
  double gapShare() const;  ///< of the clip's frames, 0 to 1
  std::int64_t gapSourceMs() const;
  /// Within the last so many milliseconds before the judged instant.
  std::int64_t gapSourceMs(std::int64_t inLastMs) const;
};

struct JudgedInstantUnavailable {
  FrameLocator::LocateResult result = {};
};
struct TooFewFramesResolved {
  int resolved = 0, minimum = minimumFrames;
};
/// There is no clip of this moment. `what()` is told beside it.
class PlanError : public std::runtime_error {
 public:
  using Reason = std::variant<JudgedInstantUnavailable, TooFewFramesResolved>;
  explicit PlanError(Reason reason);
  const Reason& reason() const { return reason_; }

 private:
  Reason reason_;
};

using Locate = std::function<FrameLocator::LocateResult(std::int64_t atMs, std::int64_t toleranceMs)>;
struct Request {
  std::int64_t judgedInstantMs = 0;
  Config config = Config::review();
  Locate locate = {};  ///< empty: the recordings of display 0 under `root`
  std::filesystem::path root = DataPaths::dataRoot();
};
/// Looks up one frame a source moment. Throws `PlanError`; a source moment that isn't found is no failure. The plan's last frame is the
/// judged instant's own, a later one only where no earlier one is near, and no frame in the plan is later than that.
Plan plan(const Request& request);

}  // namespace halvo::RampClipPlan
