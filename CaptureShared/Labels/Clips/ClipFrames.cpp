#include "CaptureShared/Labels/Clips/ClipFrames.h"

#include <algorithm>
#include <csignal>
#include <system_error>

#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/Spawn.h"

namespace halvo {

namespace {

constexpr int silenceMs = 10'000;  ///< of a decoder that is asked for a frame: a hundred times what one takes
constexpr int lookMs = 50;         ///< how soon a stop is noticed

/// Up to `size` bytes; fewer at the end of the stream.
std::string readPicture(int fd, std::size_t size, const std::stop_token& stop) {
  std::string bytes(size, '\0');
  std::size_t count = 0;
  for (int waitedMs = 0; count < size;) {
    throwIfStopped(stop);
    pollfd input{fd, POLLIN, 0};
    if (::poll(&input, 1, lookMs) <= 0) {
      if ((waitedMs += lookMs) >= silenceMs) throw std::system_error(std::make_error_code(std::errc::timed_out), "ffmpeg");
      continue;
    }
    const auto got = ::read(fd, bytes.data() + count, size - count);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) throw std::system_error(errno, std::generic_category(), "ffmpeg");
    if (got == 0) break;
    count += static_cast<std::size_t>(got), waitedMs = 0;
  }
  bytes.resize(count);
  return bytes;
}

}  // namespace

void ClipFrames::open(int number) {
  close();
  auto pipe = Spawn::Pipe::make();
  // Half a frame early, so that rounding can't skip the one wanted.
  const auto seek = std::max(0.0, (number - 0.5) / clip_.fps);
  const auto filter = fmt::format("scale={0}:{1}:force_original_aspect_ratio=decrease,pad={0}:{1}:-1:-1", clip_.width, clip_.height);
  child_ = Spawn::run(clip_.ffmpeg.string(),
                      {"-nostdin", "-v", "quiet", "-ss", fmt::format("{:.3f}", seek), "-i", clip_.file.string(), "-an", "-vf", filter,
                       "-fps_mode", "passthrough", "-f", "rawvideo", "-pix_fmt", "bgr0", "-threads", "1", "pipe:1"},
                      std::nullopt, {{pipe.write.fd(), STDOUT_FILENO}}, SIGKILL);
  pipe_ = std::move(pipe.read);
  next_ = number;
}

std::optional<std::string> ClipFrames::frame(int number, const std::stop_token& stop) {
  if (number < 0 || clip_.width <= 0 || clip_.height <= 0) return std::nullopt;
  if (child_ < 0 || number != next_) open(number);
  const auto size = static_cast<std::size_t>(clip_.width) * static_cast<std::size_t>(clip_.height) * 4;
  try {
    auto picture = readPicture(pipe_.fd(), size, stop);
    if (picture.size() == size) return ++next_, std::optional(std::move(picture));
  } catch (...) {
    close();  // a part of a picture was read
    throw;
  }
  close();
  return std::nullopt;
}

void ClipFrames::close() {
  pipe_.reset();
  if (child_ < 0) return;
  ::kill(-child_, SIGKILL);
  Spawn::wait(std::exchange(child_, -1));
}

}  // namespace halvo
