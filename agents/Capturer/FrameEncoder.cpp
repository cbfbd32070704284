#include "agents/Capturer/FrameEncoder.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <fmt/format.h>

#include "CaptureShared/Foundation/Spawn.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Recording/Supervision/CaptureProfile.h"
#include "CaptureShared/Recording/Supervision/CapturerExit.h"
#include "agents/Capturer/CaptureEnd.h"

namespace halvo {
namespace {

using Steady = std::chrono::steady_clock;

constexpr int pipeBytes = 1 << 20;
constexpr std::size_t keptErrorBytes = 4096;
constexpr auto longestFeed = std::chrono::seconds(5);

}  // namespace

FrameEncoder::Size FrameEncoder::encodedSize(const Size& fed, int widthTarget) {
  if (widthTarget <= 0 || fed.width <= widthTarget) return fed;
  const auto half = std::lround(static_cast<double>(fed.height) * widthTarget / fed.width / 2);
  return {widthTarget / 2 * 2, std::max(2, static_cast<int>(half) * 2)};
}

std::vector<std::string> FrameEncoder::arguments(int width, int height, int widthTarget) {
  const auto keyframeEvery = static_cast<int>(CaptureProfile::keyframeIntervalSec * CaptureProfile::fps);
  const Size fed{width, height}, encoded = encodedSize(fed, widthTarget);
  std::vector<std::string> words{"-nostdin", "-v", "error", "-f", "rawvideo", "-pix_fmt", "bgr0", "-video_size",
                                 fmt::format("{}x{}", width, height), "-framerate", fmt::format("{}", CaptureProfile::fps), "-i", "pipe:0", "-an"};
  if (encoded != fed) words.insert(words.end(), {"-vf", fmt::format("scale={}:{}", encoded.width, encoded.height)});
  words.insert(words.end(),
               {// Each frame leaves the encoder before the next one comes; no look ahead, no frame thrown away or doubled.
                "-c:v", "libx264", "-preset", "ultrafast", "-tune", "zerolatency", "-crf", "28", "-g", std::to_string(keyframeEvery),
                "-threads", "1", "-pix_fmt", "yuv420p", "-fps_mode", "passthrough",
                // A cluster a frame: a kill costs the one that the muxer still holds.
                "-f", "matroska", "-cluster_time_limit", "0", "-flush_packets", "1", "pipe:1"});
  return words;
}

FrameEncoder::FrameEncoder(Setup setup) : setup_(std::move(setup)), buffer_(64 << 10, '\0') {
  auto input = Spawn::Pipe::make(), output = Spawn::Pipe::make(), errors = Spawn::Pipe::make();
  pid_ = Spawn::run(setup_.ffmpeg, arguments(setup_.width, setup_.height, setup_.widthTarget), std::nullopt,
                    {{input.read.fd(), STDIN_FILENO}, {output.write.fd(), STDOUT_FILENO}, {errors.write.fd(), STDERR_FILENO}}, SIGKILL);
  input_ = std::move(input.write), output_ = std::move(output.read), errors_ = std::move(errors.read);
  for (const int fd : {input_.fd(), output_.fd(), errors_.fd()}) ::fcntl(fd, F_SETFL, O_NONBLOCK);
  ::fcntl(input_.fd(), F_SETPIPE_SZ, pipeBytes);  // refused beyond the account's share: then it is as it was
}

FrameEncoder::~FrameEncoder() {
  if (pid_ <= 0) return;
  ::kill(-pid_, SIGKILL);
  Spawn::wait(pid_);
}

void FrameEncoder::fail(const std::string& how) const {
  auto last = std::string(Text::trim(said_));
  if (const auto newline = last.rfind('\n'); newline != std::string::npos) last.erase(0, newline + 1);
  throw CaptureEnd(CapturerExit::videoSinkFailed, "ffmpeg " + how + (last.empty() ? "" : ": " + Text::scrubbed(last)));
}

bool FrameEncoder::turn(bool wantsToWrite, int timeoutMs) {
  pollfd watched[3] = {{output_.fd(), POLLIN, 0}, {errors_.fd(), POLLIN, 0}, {wantsToWrite ? input_.fd() : -1, POLLOUT, 0}};
  if (::poll(watched, 3, timeoutMs) <= 0) return false;
  const auto read = [&](FileHandle& from, auto&& take) {
    const auto got = ::read(from.fd(), buffer_.data(), buffer_.size());
    if (got > 0) return take(std::string_view(buffer_.data(), static_cast<std::size_t>(got)));
    if (got == 0 || (errno != EAGAIN && errno != EINTR)) from.reset();
  };
  if (watched[1].revents)
    read(errors_, [&](std::string_view text) {
      said_ += text;
      if (said_.size() > keptErrorBytes) said_.erase(0, said_.size() - keptErrorBytes);
    });
  if (watched[0].revents) read(output_, setup_.sink);
  return watched[2].revents != 0;
}

void FrameEncoder::feed(std::span<const std::uint8_t> picture) {
  const Spawn::BrokenPipeGuard guard;
  const auto deadline = Steady::now() + longestFeed;
  while (!picture.empty()) {
    if (isReadingDone()) fail("ended");
    if (Steady::now() > deadline) fail("takes no frames");
    if (!turn(true, 100)) continue;
    const auto written = ::write(input_.fd(), picture.data(), picture.size());
    if (written > 0)
      picture = picture.subspan(static_cast<std::size_t>(written));
    else if (errno == EPIPE) {
      while (!isReadingDone() && Steady::now() < deadline) turn(false, 100);
      fail("ended");
    } else if (errno != EAGAIN && errno != EINTR) {
      fail(errnoText(errno));
    }
  }
  pump();
}

void FrameEncoder::pump() {
  for (pollfd readable = {output_.fd(), POLLIN, 0}; output_ && ::poll(&readable, 1, 0) > 0;) turn(false, 0);
}

void FrameEncoder::finish(Steady::time_point deadline) {
  closeInput();
  while (!isReadingDone()) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Steady::now()).count();
    if (left <= 0) fail("doesn't end");
    turn(false, static_cast<int>(std::min<std::int64_t>(left, 100)));
  }
  // Its streams are closed, so it is ending.
  if (const int status = Spawn::wait(std::exchange(pid_, 0)); status != 0) fail(fmt::format("ended with {}", status));
}

}  // namespace halvo
