#include "benches/MainThreadFiles.h"

#include <array>
#include <chrono>
#include <csignal>
#include <optional>
#include <string_view>
#include <system_error>
#include <thread>

#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

namespace halvo::MainThreadFiles {

namespace {

namespace fs = std::filesystem;

/// Where the call's arguments name a file.
struct NamedIn {
  std::uint64_t call;
  int argument;
};
constexpr NamedIn byPath[] = {{SYS_openat, 1},   {SYS_newfstatat, 1}, {SYS_statx, 1},   {SYS_access, 0}, {SYS_faccessat2, 1},
                              {SYS_readlink, 0}, {SYS_readlinkat, 1}, {SYS_mkdir, 0},   {SYS_rename, 0}, {SYS_renameat2, 1},
                              {SYS_unlink, 0},   {SYS_unlinkat, 1},   {SYS_statfs, 0},  {SYS_chmod, 0},  {SYS_open, 0}};
constexpr std::uint64_t byDescriptor[] = {SYS_read,  SYS_pread64, SYS_readv,     SYS_write, SYS_pwrite64, SYS_writev,
                                          SYS_fsync, SYS_fstat,   SYS_fdatasync, SYS_flock, SYS_ftruncate, SYS_getdents64};

std::string textAt(pid_t pid, std::uint64_t address) {
  std::array<char, 256> bytes{};
  const iovec ours{bytes.data(), bytes.size() - 1}, theirs{reinterpret_cast<void*>(address), bytes.size() - 1};
  ::process_vm_readv(pid, &ours, 1, &theirs, 1, 0);
  return bytes.data();
}

/// Absent for what is no file: a pipe, a socket, a device.
std::optional<std::string> fileOf(pid_t pid, std::uint64_t descriptor) {
  std::error_code none;
  auto name = fs::read_symlink("/proc/" + std::to_string(pid) + "/fd/" + std::to_string(descriptor), none).string();
  if (!name.starts_with('/') || name.starts_with("/dev/") || name.starts_with("/memfd:")) return std::nullopt;
  return name;
}

/// The file that a call is about.
std::optional<std::string> fileOf(pid_t pid, const __ptrace_syscall_info& info) {
  for (const auto& named : byPath)
    if (info.entry.nr == named.call) {
      auto path = textAt(pid, info.entry.args[named.argument]);
      return path.empty() ? fileOf(pid, info.entry.args[0]) : path;
    }
  for (const auto call : byDescriptor)
    if (info.entry.nr == call) return fileOf(pid, info.entry.args[0]);
  return std::nullopt;
}

[[noreturn]] void fail(const char* what) { throw std::system_error(errno, std::generic_category(), what); }

}  // namespace

std::map<std::string, Use> trace(const fs::path& program, const std::function<void()>& drive) {
  const pid_t pid = ::fork();
  if (pid < 0) fail("fork");
  if (pid == 0) {
    ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    ::execl(program.c_str(), program.c_str(), nullptr);
    ::_exit(127);
  }
  int status = 0;
  if (::waitpid(pid, &status, 0) != pid || !WIFSTOPPED(status)) fail(program.c_str());
  if (::ptrace(PTRACE_SETOPTIONS, pid, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL) != 0) fail("ptrace");
  const std::jthread user([&] {
    drive();
    ::kill(pid, SIGTERM);
  });
  std::map<std::string, Use> uses;
  std::optional<std::string> file;
  // Other threads aren't followed: a new one is not traced.
  for (int signal = 0;; signal = 0) {
    const auto begun = std::chrono::steady_clock::now();
    ::ptrace(PTRACE_SYSCALL, pid, nullptr, signal);
    if (::waitpid(pid, &status, 0) != pid || WIFEXITED(status) || WIFSIGNALED(status)) return uses;
    const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - begun;
    if (WSTOPSIG(status) != (SIGTRAP | 0x80)) {
      signal = WSTOPSIG(status) == SIGTRAP ? 0 : WSTOPSIG(status);
      continue;
    }
    __ptrace_syscall_info info{};
    if (::ptrace(PTRACE_GET_SYSCALL_INFO, pid, sizeof info, &info) < 0) fail("ptrace");
    if (info.op == PTRACE_SYSCALL_INFO_ENTRY) {
      file = fileOf(pid, info);
    } else if (file) {
      auto& use = uses[*file];
      ++use.calls;
      use.ms += took.count();
      file.reset();
    }
  }
}

}  // namespace halvo::MainThreadFiles
