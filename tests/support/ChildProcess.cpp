#include "tests/support/ChildProcess.h"

#include <csignal>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>

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

ChildProcess ChildProcess::logged(const std::string& program, const std::vector<std::string>& arguments, const Environment& environment,
                                  const std::filesystem::path& log) {
  const FileHandle file(::open(log.c_str(), O_CREAT | O_WRONLY | O_APPEND | O_CLOEXEC, 0600));
  return {program, arguments, environment, {{.ours = file.fd(), .childs = STDOUT_FILENO}, {.ours = file.fd(), .childs = STDERR_FILENO}}};
}

ChildProcess ChildProcess::greeting(const std::string& program, const std::vector<std::string>& arguments, const Environment& environment,
                                    std::string& line) {
  auto pipe = Spawn::Pipe::make();
  ChildProcess child(program, arguments, environment, {{.ours = pipe.write.fd(), .childs = STDOUT_FILENO}});
  pipe.write.reset();
  line.clear();
  for (char byte = 0; ::read(pipe.read.fd(), &byte, 1) == 1 && byte != '\n';) line += byte;
  return child;
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

bool isRunning(pid_t pid) {
  std::string stat;
  std::getline(std::ifstream("/proc/" + std::to_string(pid) + "/stat"), stat);
  return !stat.empty() && stat.find(") Z ") == std::string::npos;
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
