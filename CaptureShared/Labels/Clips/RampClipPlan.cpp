#include "CaptureShared/Labels/Clips/RampClipPlan.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <utility>

#include <fmt/format.h>

#include "CaptureShared/Foundation/Match.h"
#include "CaptureShared/Foundation/Translation.h"
#include "CaptureShared/Recording/Location/BatchLocator.h"

namespace halvo::RampClipPlan {

namespace {

using FrameLocator::Located;
using FrameLocator::LocateResult;

constexpr double steepness = 3, floorValue = 0.049787068367863944, floorRest = 0.950212931632136;  // e^-3 and 1 - e^-3
constexpr int maxRetries = 4;
constexpr std::int64_t retryStepMs = 500;    // one recorded frame
constexpr std::int64_t windowSlackMs = 10'000;
constexpr int leastSourceFrames = 20;

int rounded(double value) { return static_cast<int>(std::llround(value)); }

std::string textOf(const LocateResult& result) {
  return match(
      result, [](const Located&) { return std::string(); },
      [](const FrameLocator::NoFrameNearby&) { return tr("No capture frame near the judged instant — capture wasn't running then."); },
      [](const FrameLocator::UnsupportedEra&) {
        return tr("This moment predates the frame-index sidecar columns (2026-07-07), so no frame can be resolved for it.");
      });
}

std::string textOf(const PlanError::Reason& reason) {
  return match(
      reason, [](const JudgedInstantUnavailable& unavailable) { return textOf(unavailable.result); },
      [](const TooFewFramesResolved& few) {
        return tr("Only {} of the lead-up frames resolved (need {}) — capture was mostly not running.", few.resolved, few.minimum);
      });
}

/// The frame of the judged instant. A later one would show what the classifier can't have seen, so an earlier one is looked for.
Located anchor(const Request& request, const Locate& locate) {
  auto askedMs = request.judgedInstantMs;
  std::optional<std::int64_t> laterMs;
  auto result = locate(askedMs, request.config.toleranceMs);
  const auto isLater = [&] {
    const auto* found = std::get_if<Located>(&result);
    return found && found->frameRealMs > request.judgedInstantMs;
  };
  for (int retry = 0; retry < maxRetries && isLater(); ++retry) {
    const auto frameMs = std::get<Located>(result).frameRealMs;
    // The same frame again: from there it would be the same question.
    askedMs = (std::exchange(laterMs, frameMs) == frameMs ? askedMs : frameMs) - retryStepMs;
    result = locate(askedMs, request.config.toleranceMs);
  }
  if (const auto* found = std::get_if<Located>(&result)) return *found;
  throw PlanError(JudgedInstantUnavailable{result});
}

/// Gathers frames in their order, and the time of those that weren't found.
class Assembly {
 public:
  explicit Assembly(std::int64_t minimumGapMs) : minimumGapMs_(minimumGapMs) {}

  void drop(int hold) { droppedHold_ += hold; }
  void show(const Located& found, int hold) {
    ++resolved_;
    if (!frames_.empty() && frames_.back().file == found.file && frames_.back().frameIndex == found.frameIndex) {
      frames_.back().holdFrames += hold + std::exchange(droppedHold_, 0);
      return;
    }
    if (!frames_.empty() && found.frameRealMs - frames_.back().sourceRealMs >= minimumGapMs_)
      frames_.push_back(Frame::gap(frames_.back().sourceRealMs, std::max(1, std::exchange(droppedHold_, 0))));
    frames_.push_back({.file = found.file,
                       .frameIndex = found.frameIndex,
                       .sourceRealMs = found.frameRealMs,
                       .holdFrames = hold + std::exchange(droppedHold_, 0),
                       .segmentStartFrame = found.segmentStartFrame});
  }
  int resolved() const { return resolved_; }
  std::vector<Frame> frames() && { return std::move(frames_); }

 private:
  std::int64_t minimumGapMs_;
  std::vector<Frame> frames_;
  int droppedHold_ = 0, resolved_ = 0;
};

Locate locateUnder(const Request& request) {
  const auto& config = request.config;
  const auto slackMs = config.toleranceMs + windowSlackMs;
  using FrameLocator::BatchLocator;
  auto batch = std::make_shared<BatchLocator>(BatchLocator::Source{.display = 0,
                                                                   .fromMs = request.judgedInstantMs - config.leadUpMs - slackMs,
                                                                   .toMs = request.judgedInstantMs + slackMs,
                                                                   .root = request.root});
  return [batch](std::int64_t atMs, std::int64_t toleranceMs) { return batch->locateDetailed(atMs, toleranceMs); };
}

}  // namespace

Config Config::make(const Draft& draft) {
  Config made{.leadUpMs = draft.leadUpMs,
              .tailSpanMs = draft.tailSpanMs,
              .tailFraction = draft.tailFraction,
              .durationSeconds = draft.durationSeconds,
              .outputFps = draft.outputFps,
              .toleranceMs = draft.toleranceMs};
  made.sourceFrameCount = draft.sourceFrameCount.value_or(std::max(leastSourceFrames, rounded(made.durationSeconds * made.outputFps)));
  if (draft.minimumGapMs) {
    made.minimumGapMs = *draft.minimumGapMs;
    return made;
  }
  const auto steps = offsets(made);
  for (std::size_t i = 1; i < steps.size(); ++i) made.minimumGapMs = std::max(made.minimumGapMs, 2 * (steps[i - 1] - steps[i]));
  return made;
}

Config Config::realtime(std::int64_t spanMs) {
  const auto count = static_cast<int>(std::max<std::int64_t>(leastSourceFrames, spanMs / 1000 * 2));
  return {.leadUpMs = spanMs,
          .tailSpanMs = spanMs,
          .tailFraction = 1,
          .sourceFrameCount = count,
          .durationSeconds = count / 2.0,
          .outputFps = 2,
          .minimumGapMs = 3'000,
          .toleranceMs = 2'000};
}

int Config::outputFrameCount() const { return std::max(1, rounded(durationSeconds * outputFps)); }

std::vector<std::int64_t> offsets(const Config& config) {
  const int count = std::max(0, config.sourceFrameCount);
  const int tail = std::clamp(rounded(std::min(config.tailFraction, 1.0) * count), 0, count), lead = count - tail;
  const auto start = static_cast<double>(config.leadUpMs), span = static_cast<double>(config.tailSpanMs);
  // The ramp runs into the tail's own first step.
  const double end = tail > 0 ? static_cast<double>((tail - 1) * config.tailSpanMs) / tail : span;
  std::vector<std::int64_t> found;
  found.reserve(static_cast<std::size_t>(count) + 1);
  for (int i = 0; i < lead; ++i) {
    const double t = static_cast<double>(i) / lead;  // not lead - 1: it stops a step short of its end
    found.push_back(std::llround(end + (start - end) * (std::exp(-steepness * t) - floorValue) / floorRest));
  }
  if (tail < 1) found.push_back(0);
  for (int k = tail - 1; k >= 0; --k) found.push_back(std::llround(static_cast<double>(k * config.tailSpanMs) / tail));
  return found;
}

int Plan::outputFrameCount() const { return frames.empty() ? 0 : outputStarts.back() + frames.back().holdFrames; }
double Plan::durationSeconds() const { return std::max(1, outputFrameCount()) / outputFps; }
int Plan::planIndex(int forOutputFrame) const {
  const auto behind = static_cast<int>(std::ranges::upper_bound(outputStarts, forOutputFrame) - outputStarts.begin());
  return frames.empty() ? -1 : std::max(0, behind - 1);
}
int Plan::gapOutputFrames() const {
  int count = 0;
  for (const auto& frame : frames)
    if (frame.isGap()) count += frame.holdFrames;
  return count;
}
double Plan::gapShare() const { return static_cast<double>(gapOutputFrames()) / std::max(1, outputFrameCount()); }
std::int64_t Plan::gapSourceMs() const { return gapSourceMs(std::numeric_limits<std::int64_t>::max()); }
std::int64_t Plan::gapSourceMs(std::int64_t inLastMs) const {
  const auto fromMs = inLastMs > judgedInstantMs ? std::numeric_limits<std::int64_t>::min() : judgedInstantMs - inLastMs;
  std::int64_t sum = 0;
  for (std::size_t i = 0; i + 1 < frames.size(); ++i)
    if (frames[i].isGap()) sum += std::max<std::int64_t>(0, frames[i + 1].sourceRealMs - std::max(fromMs, frames[i].sourceRealMs));
  return sum;
}

PlanError::PlanError(Reason reason) : std::runtime_error(textOf(reason)), reason_(std::move(reason)) {}

Plan plan(const Request& request) {
  const auto& config = request.config;
  const auto locate = request.locate ? request.locate : locateUnder(request);
  const auto judged = anchor(request, locate);
  const auto moments = offsets(config);
  const auto startOf = [&](std::size_t i) {
    return rounded(static_cast<double>(config.outputFrameCount()) * static_cast<double>(i) / static_cast<double>(moments.size()));
  };
  Assembly assembly(config.minimumGapMs);
  for (std::size_t i = 0; i < moments.size(); ++i) {
    const int hold = startOf(i + 1) - startOf(i);
    const bool isLast = i + 1 == moments.size();
    const auto result = isLast ? LocateResult(judged) : locate(request.judgedInstantMs - moments[i], config.toleranceMs);
    const auto* found = std::get_if<Located>(&result);
    if (found)
      assembly.show(found->frameRealMs > judged.frameRealMs ? judged : *found, isLast ? std::max(1, hold) : hold);
    else
      assembly.drop(hold);
  }
  if (assembly.resolved() < minimumFrames) throw PlanError(TooFewFramesResolved{.resolved = assembly.resolved()});
  Plan made{.frames = std::move(assembly).frames(), .outputFps = config.outputFps, .judgedInstantMs = request.judgedInstantMs};
  int start = 0;
  for (const auto& frame : made.frames) {
    made.outputStarts.push_back(start);
    start += frame.holdFrames;
  }
  return made;
}

}  // namespace halvo::RampClipPlan
