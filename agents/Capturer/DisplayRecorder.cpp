#include "agents/Capturer/DisplayRecorder.h"

#include <system_error>
#include <utility>

#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/Foundation/Match.h"
#include "CaptureShared/Foundation/WallHour.h"
#include "agents/Capturer/CaptureEnd.h"
#include "agents/Capturer/FramePlacement.h"

namespace halvo {
namespace {

using Steady = std::chrono::steady_clock;

/// For an hour file that ends while others begin.
constexpr auto hourEnds = std::chrono::seconds(5);

Rect evenSides(Rect rect) {
  const auto even = [](double side) { return static_cast<double>(static_cast<int>(side) / 2 * 2); };
  rect.width = even(rect.width), rect.height = even(rect.height);
  return rect;
}

template <class F>
void indexing(F&& body) {
  try {
    body();
  } catch (const std::system_error& error) {
    throw CaptureEnd::ofWrite(error);
  }
}

CaptureIndex indexOf(const DisplayRecorder::Setup& setup) {
  try {
    return CaptureIndex(setup.display.number, setup.root);
  } catch (const std::system_error& error) {
    throw CaptureEnd::ofWrite(error);
  }
}

}  // namespace

DisplayRecorder::DisplayRecorder(Setup setup)
    : setup_(std::move(setup)),
      recorded_(evenSides(setup_.display.bounds)),
      room_(static_cast<std::size_t>(recorded_.width * recorded_.height) * 4),
      index_(indexOf(setup_)) {}

void DisplayRecorder::record(std::int64_t nowMs, std::size_t maskedWindows) {
  std::int64_t frame = 0;
  if (session_) {
    const auto decision = FramePlacement::decide({.startMs = session_->startMs, .lastIndex = session_->lastIndex}, nowMs);
    const bool isDropped = match(
        decision, [&](const FramePlacement::At& at) { return frame = at.index, false; },
        [](const FramePlacement::TooEarly&) { return true; },
        [&](const FramePlacement::NewSession&) { return end(Steady::now() + hourEnds), false; });
    if (isDropped) return;
  }
  if (!session_) indexing([&] { session_ = Session{.startMs = index_.freeSessionStart(nowMs)}; });
  const auto first = session_->lastIndex + 1;
  if (auto prefix = WallHour::prefix(nowMs, setup_.calendar); !hour_ || prefix != hourPrefix_) {
    endSegment(Steady::now() + hourEnds);
    beginSegment(first, std::move(prefix));
  }
  for (auto i = first; i <= frame; ++i) hour_->feed(room_);
  session_->lastIndex = frame;
  waiting_.push_back({.realTsMs = nowMs, .frameIndexInSession = frame, .sessionStartMs = session_->startMs});
  if (session_->maskedWindows != maskedWindows)
    indexing([&] {
      index_.appendMeta({.frame = waiting_.back(),
                         .width = hour_->size().width,
                         .height = hour_->size().height,
                         .maskedWindows = maskedWindows});
      session_->maskedWindows = maskedWindows;
    });
  writeRows();
}

void DisplayRecorder::beginSegment(std::int64_t firstFrame, std::string hourPrefix) {
  hourPrefix_ = std::move(hourPrefix);
  hour_ = std::make_unique<HourFile>(HourFile::Setup{.folder = DataPaths::videoDir(setup_.display.number, setup_.root),
                                                     .hourPrefix = hourPrefix_,
                                                     .key = setup_.key,
                                                     .generation = setup_.generation,
                                                     .ffmpeg = setup_.ffmpeg,
                                                     .width = static_cast<int>(recorded_.width),
                                                     .height = static_cast<int>(recorded_.height),
                                                     .widthTarget = setup_.widthTarget});
  // Its end isn't known: a frame behind the last known one is looked for in the last segment.
  session_->segments.push_back({.filename = hour_->filename(), .startFrame = firstFrame, .endFrame = firstFrame});
  indexing([&] { index_.writeSegments(session_->startMs, session_->segments); });
}

void DisplayRecorder::writeRows() {
  if (!hour_) return;
  const auto endOnDisk = session_->segments.back().startFrame + hour_->framesOnDisk();
  std::vector<CaptureIndex::Row> rows;
  while (!waiting_.empty() && waiting_.front().frameIndexInSession < endOnDisk) {
    rows.push_back(waiting_.front());
    waiting_.pop_front();
  }
  indexing([&] { index_.appendRows(rows); });
}

void DisplayRecorder::pump() {
  if (!hour_) return;
  hour_->pump();
  writeRows();
}

void DisplayRecorder::endSegment(Steady::time_point deadline) {
  if (!hour_) return;
  std::optional<CaptureEnd> failure;
  try {
    hour_->finish(deadline);
  } catch (const CaptureEnd& error) {
    failure = error;
  }
  // Whatever became of the rest, what is on the disk has its rows.
  try {
    writeRows();
    session_->segments.back().endFrame = session_->segments.back().startFrame + hour_->framesOnDisk();
    indexing([&] { index_.writeSegments(session_->startMs, session_->segments); });
  } catch (const CaptureEnd& error) {
    if (!failure) failure = error;
  }
  waiting_.clear();
  hour_.reset();
  if (failure) throw *failure;
}

void DisplayRecorder::beginEnd() {
  if (hour_) hour_->closeInput();
}

void DisplayRecorder::end(Steady::time_point deadline) {
  struct Forget {
    std::optional<Session>& session;
    ~Forget() { session.reset(); }
  } const forget{session_};
  endSegment(deadline);
}

}  // namespace halvo
