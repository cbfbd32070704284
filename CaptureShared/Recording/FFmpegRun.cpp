#include "CaptureShared/Recording/FFmpegRun.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <system_error>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/Spawn.h"

namespace halvo::FFmpegRun {
namespace {

constexpr std::size_t keptErrorBytes = 64 << 10;
constexpr int pipeBytes = 1 << 20;  // a chunk: the feed then deciphers the next one while ffmpeg has this one

class Run {
 public:
  Run(const std::filesystem::path& ffmpeg, const std::vector<std::string>& arguments, const Feed& feed) : feed_(feed) {
    auto input = Spawn::Pipe::make(), errors = Spawn::Pipe::make();
    const FileHandle nothing(::open("/dev/null", O_RDWR | O_CLOEXEC));
    pid_ = Spawn::run(ffmpeg, arguments, std::nullopt,
                      {{input.read.fd(), STDIN_FILENO}, {nothing.fd(), STDOUT_FILENO}, {errors.write.fd(), STDERR_FILENO}});
    errors_ = std::move(errors.read);
    if (!feed_) return;
    input_ = std::move(input.write);
    ::fcntl(input_.fd(), F_SETFL, O_NONBLOCK);
    ::fcntl(input_.fd(), F_SETPIPE_SZ, pipeBytes);  // refused beyond the account's share: then it is as it was
  }
  Run(const Run&) = delete;
  Run& operator=(const Run&) = delete;
  ~Run() {
    if (pid_ <= 0) return;
    ::kill(-pid_, SIGKILL);
    Spawn::wait(pid_);
  }

  Outcome finish(const std::stop_token& stop) {
    const Spawn::BrokenPipeGuard guard;  // a child that ends early must not end us
    while (errors_ || input_) {
      throwIfStopped(stop);
      if (input_ && pending_.empty()) fetch();
      pollfd watched[2] = {{errors_.fd(), POLLIN, 0}, {input_.fd(), POLLOUT, 0}};  // a closed one is -1, which poll leaves out
      if (::poll(watched, 2, 50) <= 0) continue;                                   // the token is looked at every 50 ms
      if (watched[1].revents) feedOn();
      if (watched[0].revents) readErrors();
    }
    outcome_.exitStatus = Spawn::wait(std::exchange(pid_, 0));
    return std::move(outcome_);
  }

 private:
  void fetch() {
    try {
      const auto piece = feed_();
      pending_ = piece.value_or("");
      if (!piece) input_.reset();
    } catch (const std::exception& error) {
      endFeed(error.what());
    }
  }
  void feedOn() {
    const auto written = ::write(input_.fd(), pending_.data(), pending_.size());
    if (written >= 0)
      pending_.remove_prefix(static_cast<std::size_t>(written));
    else if (errno != EAGAIN && errno != EINTR)
      endFeed(errnoText(errno));
  }
  void endFeed(std::string reason) {
    outcome_.feedFailure = std::move(reason);
    input_.reset();
  }
  void readErrors() {
    char bytes[4096];
    const auto got = ::read(errors_.fd(), bytes, sizeof bytes);
    if (got < 0 && errno == EINTR) return;
    if (got <= 0) return errors_.reset();
    auto& kept = outcome_.standardError;
    kept.append(bytes, static_cast<std::size_t>(got));
    if (kept.size() > 2 * keptErrorBytes) kept.erase(0, kept.size() - keptErrorBytes);
  }

  const Feed& feed_;
  pid_t pid_ = 0;
  FileHandle errors_, input_;
  std::string_view pending_;
  Outcome outcome_;
};

}  // namespace

Outcome run(const std::filesystem::path& ffmpeg, const std::vector<std::string>& arguments, const Feed& feed, const std::stop_token& stop) {
  return Run(ffmpeg, arguments, feed).finish(stop);
}

}  // namespace halvo::FFmpegRun
