#include "tests/support/ChildProcess.h"

#include <csignal>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>

#include "CaptureShared/Foundation/FileHandle.h"
#include "tests/support/Eventually.h"

namespace halvo::test {

ChildProcess::ChildProcess(const std::string& program, const std::vector<std::string>& arguments, const Environment& environment,
                           std::vector<Spawn::Descriptor> descriptors) {
  const FileHandle nowhere(::open("/dev/null", O_RDWR | O_CLOEXEC));
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
    if (std::none_of(descriptors.begin(), descriptors.end(), [&](const auto& given) { return given.childs == stream; }))
      descriptors.push_back({.ours = nowhere.fd(), .childs = stream});
  pid_ = Spawn::run(program, arguments, environment, descriptors);
}

ChildProcess& ChildProcess::operator=(ChildProcess&& other) noexcept {
  end();
  pid_ = std::exchange(other.pid_, 0);
  return *this;
}

void ChildProcess::signal(int number) const {
  if (pid_ > 0) ::kill(pid_, number);
}

std::optional<int> ChildProcess::wait(double seconds) {
  if (pid_ <= 0) return std::nullopt;
  int status = 0;
  if (!eventually([&] { return ::waitpid(pid_, &status, WNOHANG) == pid_; }, seconds)) return std::nullopt;
  pid_ = 0;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

void ChildProcess::end() {
  if (pid_ <= 0) return;
  ::kill(pid_, SIGCONT);
  ::kill(pid_, SIGTERM);
  if (wait(2)) return;
  ::kill(-pid_, SIGKILL);
  wait(5);
  pid_ = 0;
}

}  // namespace halvo::test
