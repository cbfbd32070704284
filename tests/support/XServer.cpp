#include "tests/support/XServer.h"

#include <atomic>
#include <csignal>
#include <memory>
#include <stdexcept>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <fmt/format.h>
#include <xcb/xcb.h>

#include "CaptureShared/Foundation/FileHandle.h"
#include "tests/support/Eventually.h"

namespace halvo::test {
namespace {

std::string lineFrom(int fd, double seconds) {
  std::string line;
  eventually(
      [&] {
        pollfd waiting = {.fd = fd, .events = POLLIN, .revents = 0};
        char byte = 0;
        while (::poll(&waiting, 1, 0) == 1) {
          if (::read(fd, &byte, 1) != 1 || byte == '\n') return true;  // whoever wrote has ended, or its line has
          line += byte;
        }
        return false;
      },
      seconds);
  return line;
}

bool hasWindowManager(const std::string& display) {
  const std::unique_ptr<xcb_connection_t, decltype(&xcb_disconnect)> x(xcb_connect(display.c_str(), nullptr), xcb_disconnect);
  if (xcb_connection_has_error(x.get()) != 0) return false;
  const std::string name = "_NET_SUPPORTING_WM_CHECK";
  const std::unique_ptr<xcb_intern_atom_reply_t, decltype(&std::free)> atom(
      xcb_intern_atom_reply(x.get(), xcb_intern_atom(x.get(), 0, static_cast<std::uint16_t>(name.size()), name.c_str()), nullptr),
      std::free);
  if (!atom) return false;
  const auto root = xcb_setup_roots_iterator(xcb_get_setup(x.get())).data->root;
  const std::unique_ptr<xcb_get_property_reply_t, decltype(&std::free)> value(
      xcb_get_property_reply(x.get(), xcb_get_property(x.get(), 0, root, atom->atom, XCB_ATOM_WINDOW, 0, 1), nullptr), std::free);
  return value && value->length == 1;
}

}  // namespace

XServer::XServer(Options options) : options_(std::move(options)) { start({}); }

std::string XServer::launched(const std::vector<std::string>& displayArguments) {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  const FileHandle read(ends[0]);
  FileHandle write(ends[1]);
  constexpr int childsEnd = 3;
  std::vector<std::string> arguments = displayArguments;
  arguments.insert(arguments.end(),
                   {"-displayfd", std::to_string(childsEnd), "-screen", "0",
                    fmt::format("{}x{}x{}", options_.width, options_.height, options_.depth), "-nolisten", "tcp", "-noreset"});
  arguments.insert(arguments.end(), options_.more.begin(), options_.more.end());
  server_ = ChildProcess("Xvfb", arguments, processEnvironment(), {{.ours = write.fd(), .childs = childsEnd}});
  write.reset();
  return lineFrom(read.fd(), 20);
}

void XServer::start(const std::vector<std::string>& displayArguments) {
  // A display of this process's own: one that a search from 0 found would be another test's as soon as ours has crashed.
  static std::atomic<int> made{0};
  std::string number;
  for (int attempt = 0; attempt < 4 && number.empty(); ++attempt)
    number = launched(displayArguments.empty() ? std::vector{fmt::format(":{}", 1000 + ::getpid() % 3000 * 16 + made++ % 16)} : displayArguments);
  if (number.empty()) throw std::runtime_error("Xvfb didn't start");
  display_ = ":" + number;
  if (!options_.hasWindowManager) return;
  auto environment = processEnvironment();
  environment["DISPLAY"] = display_;
  environment["HOME"] = environment["XDG_CONFIG_HOME"] = environment["XDG_CACHE_HOME"] = home_.path().string();
  environment.erase("DBUS_SESSION_BUS_ADDRESS");
  windowManager_ = ChildProcess("openbox", {"--sm-disable"}, environment);
  if (!eventually([&] { return hasWindowManager(display_); }, 20)) throw std::runtime_error("openbox didn't start");
}

void XServer::crash() {
  server_.signal(SIGKILL);
  server_.wait(5);
  windowManager_.end();
}

void XServer::restart() {
  // What a killed server leaves behind keeps its successor from the same number.
  const auto number = display_.substr(1);
  ::unlink(fmt::format("/tmp/.X{}-lock", number).c_str());
  ::unlink(fmt::format("/tmp/.X11-unix/X{}", number).c_str());
  start({display_});
}

void XServer::freeze() const { server_.signal(SIGSTOP); }
void XServer::thaw() const { server_.signal(SIGCONT); }

void XServer::input(std::vector<std::string> words) const {
  auto environment = processEnvironment();
  environment["DISPLAY"] = display_;
  ChildProcess tool("xdotool", words, environment);
  if (tool.wait(10) != 0) throw std::runtime_error("xdotool failed");
}

}  // namespace halvo::test
