#include "agents/Capturer/CapturerLoop.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

#include "CaptureShared/Recording/Supervision/CapturerExit.h"
#include "agents/Capturer/CaptureEnd.h"
#include "agents/Capturer/FramePlacement.h"
#include "agents/Capturer/WindowMask.h"

namespace halvo {
namespace {

using Steady = std::chrono::steady_clock;

constexpr double captureTimeoutSec = 2;
/// So long after the frames went in, the ones before them are out of the encoder: what is on the disk then, a kill can't take.
constexpr double encodingSec = 0.1;
/// Within the time that a program has to end; an ffmpeg that takes longer loses its last frame.
constexpr auto programEnds = std::chrono::milliseconds(550);
constexpr auto displayEnds = std::chrono::seconds(5);
/// A display that hangs for so long is told as a fault; started anew, the recorder may find it well again.
constexpr std::int64_t longestWithoutFrameMs = 30'000;

}  // namespace

CapturerLoop::CapturerLoop(Ports ports) : ports_(std::move(ports)) {}

std::optional<std::vector<Rect>> CapturerLoop::maskNow() {
  const auto sample = ports_.probes.sample();
  trust_.setTrustworthy(sample.windows.has_value());
  if (trust_.trustworthy() && hadFault_ && ports_.filterFault) ports_.filterFault(false);
  hadFault_ = !trust_.trustworthy();
  if (sample.session.screenLocked == true) {
    pause("the session is locked");
    return std::nullopt;
  }
  if (!trust_.trustworthy()) {
    pause("the desktop doesn't tell its windows, so what must not be recorded can't be known");
    if (ports_.filterFault) ports_.filterFault(true);
    return std::nullopt;
  }
  return WindowMask::rectangles(*sample.windows, ports_.denylist);
}

void CapturerLoop::pause(const std::string& why) {
  if (paused_ != why && ports_.log) ports_.log("recording nothing: " + why);
  paused_ = why;
  endSessions();
}

void CapturerLoop::follow(const std::vector<ScreenDisplay>& displays) {
  if (displays.empty()) throw CaptureEnd(CapturerExit::noDisplaysAvailable, "no display is there");
  for (auto it = recorders_.begin(); it != recorders_.end();) {
    const bool isSame = std::ranges::find(displays, it->second->display()) != displays.end();
    const auto old = isSame ? nullptr : std::move(it->second);
    it = isSame ? std::next(it) : recorders_.erase(it);
    if (old) old->end(Steady::now() + displayEnds);
  }
  for (const auto& display : displays)
    if (!recorders_.contains(display.number))
      recorders_[display.number] = std::make_unique<DisplayRecorder>(DisplayRecorder::Setup{.display = display,
                                                                                           .root = ports_.root,
                                                                                           .key = ports_.key,
                                                                                           .generation = ports_.generation,
                                                                                           .ffmpeg = ports_.ffmpeg,
                                                                                           .widthTarget = ports_.widthTarget,
                                                                                           .calendar = ports_.calendar});
}

void CapturerLoop::pump() {
  for (const auto& [number, recorder] : recorders_) recorder->pump();
}

std::vector<CapturerLoop::Captured> CapturerLoop::captureAll(const std::stop_token& stop) {
  std::vector<Captured> captured;
  bool isAnyLate = false;
  for (const auto& [number, recorder] : recorders_) {
    if (recorder->room().empty()) continue;
    try {
      const auto askedMs = ports_.clock.nowMs();
      ports_.screen.capturePixels(recorder->recorded(), recorder->room(), captureTimeoutSec, stop);
      const auto tookMs = ports_.clock.nowMs() - askedMs;
      // Asleep in between, or the clock was set: when the picture was taken can't be told.
      if (tookMs < 0 || tookMs > FramePlacement::periodMs) isAnyLate = true;
      else captured.push_back({recorder.get(), askedMs + tookMs / 2});
    } catch (const ScreenCaptureError& error) {
      // It changed between the two questions: the next turn sees its new size.
      if (error.kind() != ScreenCaptureError::Kind::outsideDesktop) throw;
    }
  }
  if (captured.empty() && isAnyLate)
    throw ScreenCaptureError(ScreenCaptureError::Kind::timedOut, "the display answered too late for the picture's time to be known");
  return captured;
}

void CapturerLoop::turn(const std::stop_token& stop) {
  pump();
  // A server that is gone tells neither its displays nor its windows, and that is no fault of the filter's: so it is asked first.
  const auto displays = ports_.screen.displays();
  auto mask = maskNow();
  if (!mask) return;
  follow(displays);
  const auto captured = captureAll(stop);
  // A window that came up in between is in this list, one that went in the first.
  const auto after = maskNow();
  if (!after) return;
  mask->insert(mask->end(), after->begin(), after->end());
  for (const auto& [recorder, atMs] : captured) {
    WindowMask::paint({.pixels = recorder->room(), .bounds = recorder->recorded()}, *mask);
    recorder->record(atMs, after->size());
  }
  if (!std::exchange(paused_, {}).empty() && ports_.log) ports_.log("recording again");
}

void CapturerLoop::endSessions(std::chrono::milliseconds within) {
  std::optional<CaptureEnd> failure;
  const auto deadline = Steady::now() + within;
  const auto all = [&](auto&& step) {
    for (const auto& [number, recorder] : recorders_) try {
        step(*recorder);
      } catch (const CaptureEnd& error) {
        if (!failure) failure = error;
      }
  };
  all([](DisplayRecorder& recorder) { recorder.beginEnd(); });
  all([&](DisplayRecorder& recorder) { recorder.end(deadline); });
  if (failure) throw *failure;
}

std::int32_t CapturerLoop::run(const std::stop_token& stop) {
  std::int32_t code = 0;
  std::string trouble;
  std::int64_t troubleSinceMs = 0;  // while there is any
  const auto ends = [&](std::int32_t with, const std::string& why) {
    code = with;
    if (ports_.log) ports_.log("recording ends: " + why);
  };
  for (auto dueMs = ports_.clock.nowMs(); code == 0 && !stop.stop_requested();) {
    if (ports_.isPaused && ports_.isPaused(ports_.clock.nowMs())) {
      if (ports_.log) ports_.log("recording ends: it is paused");
      break;
    }
    try {
      turn(stop);
      trouble.clear();
    } catch (const CaptureEnd& error) {
      ends(error.code(), error.what());
    } catch (const ScreenCaptureError& error) {
      const auto nowMs = ports_.clock.nowMs();
      if (trouble.empty()) troubleSinceMs = nowMs;
      if (const auto told = CapturerExit::startupCode(error))
        ends(*told, error.what());
      else if (std::exchange(trouble, error.what()) != error.what() && ports_.log)
        ports_.log(std::string("no frame: ") + error.what());
      if (code == 0 && nowMs - troubleSinceMs >= longestWithoutFrameMs) ends(CapturerExit::videoSinkFailed, error.what());
    } catch (const Cancelled&) {
      break;
    }
    dueMs += FramePlacement::periodMs;
    const auto nowMs = ports_.clock.nowMs();
    if (dueMs <= nowMs || dueMs > nowMs + FramePlacement::periodMs) dueMs = nowMs + FramePlacement::periodMs;
    if (code != 0) break;
    const auto leftSec = static_cast<double>(dueMs - nowMs) / 1000, firstSec = std::min(leftSec, encodingSec);
    ports_.clock.wait(firstSec, stop);
    try {
      pump();
    } catch (const CaptureEnd& error) {
      ends(error.code(), error.what());
    }
    if (code == 0) ports_.clock.wait(leftSec - firstSec, stop);
  }
  try {
    endSessions(programEnds);
  } catch (const CaptureEnd& error) {
    if (code == 0 && ports_.log) ports_.log(std::string("the end of a recording is lost: ") + error.what());
  }
  return code;
}

}  // namespace halvo
