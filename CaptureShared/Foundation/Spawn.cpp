#include "CaptureShared/Foundation/Spawn.h"

#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace halvo::Spawn {

namespace {

constexpr std::size_t maxOutputBytes = 16u << 20;

struct FileActions {
  posix_spawn_file_actions_t value;
  FileActions() { ::posix_spawn_file_actions_init(&value); }
  ~FileActions() { ::posix_spawn_file_actions_destroy(&value); }
};

struct Attributes {
  posix_spawnattr_t value;
  Attributes() {
    ::posix_spawnattr_init(&value);
    // A group of its own, so that a kill takes the child's children too; signals as a fresh program has them.
    ::posix_spawnattr_setpgroup(&value, 0);
    sigset_t none, all;
    ::sigemptyset(&none);
    ::sigfillset(&all);
    ::sigdelset(&all, SIGKILL);
    ::sigdelset(&all, SIGSTOP);
    ::posix_spawnattr_setsigmask(&value, &none);
    ::posix_spawnattr_setsigdefault(&value, &all);
    ::posix_spawnattr_setflags(&value, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  }
  ~Attributes() { ::posix_spawnattr_destroy(&value); }
};

std::vector<char*> pointers(std::vector<std::string>& texts) {
  std::vector<char*> list;
  for (auto& text : texts) list.push_back(text.data());
  list.push_back(nullptr);
  return list;
}

sigset_t pipeSignal() {
  sigset_t set;
  ::sigemptyset(&set);
  ::sigaddset(&set, SIGPIPE);
  return set;
}

/// What a child turns into, made before the fork: behind it nothing may allocate.
struct Plan {
  const char* program;
  char* const* words;
  char* const* settings;
  const std::vector<Descriptor>& descriptors;
  int deathSignal;
};

/// A forked child's way into its program, as `Attributes` has it, and the bond that `posix_spawn` can't make. Answers an errno.
int become(const Plan& plan, pid_t parent) {
  struct sigaction usual {};
  usual.sa_handler = SIG_DFL;
  for (int signal = 1; signal < NSIG; ++signal) ::sigaction(signal, &usual, nullptr);
  sigset_t none;
  ::sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
  ::setpgid(0, 0);
  if (::prctl(PR_SET_PDEATHSIG, plan.deathSignal) != 0) return errno;
  if (::getppid() != parent) return ESRCH;  // it ended before the bond held
  for (const auto& descriptor : plan.descriptors) {
    const bool isPlaced = descriptor.ours == descriptor.childs ? ::fcntl(descriptor.ours, F_SETFD, 0) == 0
                                                               : ::dup2(descriptor.ours, descriptor.childs) >= 0;
    if (!isPlaced) return errno;
  }
  ::execvpe(plan.program, plan.words, plan.settings);
  return errno;
}

/// Above whatever number a child's descriptors may have.
constexpr int reportDescriptor = 200;

pid_t forkInto(const Plan& plan) {
  auto report = Pipe::make();
  FileHandle write(::fcntl(report.write.fd(), F_DUPFD_CLOEXEC, reportDescriptor));
  if (!write) throw std::system_error(errno, std::generic_category(), plan.program);
  report.write.reset();
  const pid_t parent = ::getpid();
  const pid_t pid = ::fork();
  if (pid < 0) throw std::system_error(errno, std::generic_category(), plan.program);
  if (pid == 0) {
    const int error = become(plan, parent);
    [[maybe_unused]] const auto told = ::write(write.fd(), &error, sizeof error);
    ::_exit(127);
  }
  write.reset();
  int error = 0;
  ssize_t got;
  while ((got = ::read(report.read.fd(), &error, sizeof error)) < 0 && errno == EINTR) {
  }
  if (got == 0) return pid;  // closed by the program's start
  wait(pid);
  throw std::system_error(error, std::generic_category(), plan.program);
}

}  // namespace

int wait(pid_t pid) {
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::optional<int> reap(pid_t pid) {
  siginfo_t info{};
  if (::waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) != 0) return -1;
  if (info.si_pid == 0) return std::nullopt;
  // Before it is reaped, while nobody else can have its number.
  ::kill(-pid, SIGKILL);
  return wait(pid);
}

Pipe Pipe::make() {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
  return {FileHandle(ends[0]), FileHandle(ends[1])};
}

BrokenPipeGuard::BrokenPipeGuard() {
  const auto set = pipeSignal();
  ::pthread_sigmask(SIG_BLOCK, &set, &before_);
}

BrokenPipeGuard::~BrokenPipeGuard() {
  const auto set = pipeSignal();
  const timespec now{};
  while (!::sigismember(&before_, SIGPIPE) && ::sigtimedwait(&set, nullptr, &now) == SIGPIPE) {
  }
  ::pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

pid_t run(const std::string& program, const std::vector<std::string>& arguments, const std::optional<Environment>& environment,
          const std::vector<Descriptor>& descriptors, std::optional<int> deathSignal) {
  std::vector<std::string> words{program};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<std::string> settings;
  if (environment)
    for (const auto& [key, setting] : *environment) settings.push_back(key + "=" + setting);
  if (deathSignal)
    return forkInto({.program = program.c_str(),
                     .words = pointers(words).data(),
                     .settings = environment ? pointers(settings).data() : environ,
                     .descriptors = descriptors,
                     .deathSignal = *deathSignal});
  FileActions actions;
  for (const auto& descriptor : descriptors) ::posix_spawn_file_actions_adddup2(&actions.value, descriptor.ours, descriptor.childs);
  const Attributes attributes;
  pid_t pid = 0;
  const int error = ::posix_spawnp(&pid, program.c_str(), &actions.value, &attributes.value, pointers(words).data(),
                                   environment ? pointers(settings).data() : environ);
  if (error != 0) throw std::system_error(error, std::generic_category(), program);
  return pid;
}

std::optional<Output> capture(const std::string& program, const std::vector<std::string>& arguments, std::string_view input, double seconds,
                              const std::stop_token& stop) {
  auto toChild = Pipe::make(), fromChild = Pipe::make();
  const FileHandle quiet(::open("/dev/null", O_WRONLY | O_CLOEXEC));
  const pid_t pid = run(program, arguments, std::nullopt,
                        {{toChild.read.fd(), STDIN_FILENO}, {fromChild.write.fd(), STDOUT_FILENO}, {quiet.fd(), STDERR_FILENO}});
  toChild.read.reset();
  fromChild.write.reset();
  ::fcntl(toChild.write.fd(), F_SETFL, O_NONBLOCK);

  const BrokenPipeGuard guard;  // a child that ends early must not end us
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::duration<double>(seconds));
  Output output;
  for (bool open = true; open;) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()).count();
    if (left <= 0 || stop.stop_requested() || output.standardOutput.size() > maxOutputBytes) {
      ::kill(-pid, SIGKILL);
      wait(pid);
      return std::nullopt;
    }
    if (input.empty()) toChild.write.reset();
    pollfd watched[2] = {{fromChild.read.fd(), POLLIN, 0}, {toChild.write.fd(), POLLOUT, 0}};
    // The token is looked at every 50 ms.
    if (::poll(watched, toChild.write ? 2 : 1, static_cast<int>(std::min<std::int64_t>(left, 50))) < 0 && errno != EINTR) break;
    if (toChild.write && watched[1].revents) {
      const auto written = ::write(toChild.write.fd(), input.data(), input.size());
      if (written > 0)
        input.remove_prefix(static_cast<std::size_t>(written));
      else if (errno != EAGAIN && errno != EINTR)
        toChild.write.reset();
    }
    if (watched[0].revents) {
      char buffer[65536];
      const auto got = ::read(fromChild.read.fd(), buffer, sizeof buffer);
      if (got > 0)
        output.standardOutput.append(buffer, static_cast<std::size_t>(got));
      else if (got == 0 || errno != EINTR)
        open = false;
    }
  }
  // Its output is closed, yet it may linger: the deadline holds for its end too.
  for (;;) {
    int status = 0;
    const auto ended = ::waitpid(pid, &status, WNOHANG);
    if (ended == pid) {
      output.exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
      return output;
    }
    if (ended < 0 && errno != EINTR) return output;
    if (std::chrono::steady_clock::now() >= deadline || stop.stop_requested()) {
      ::kill(-pid, SIGKILL);
      wait(pid);
      return std::nullopt;
    }
    ::poll(nullptr, 0, 2);
  }
}

}  // namespace halvo::Spawn
