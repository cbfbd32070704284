#include "Platform/Linux/XConnection.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <vector>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <fmt/format.h>
#include <xcb/xcbext.h>

#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo {
namespace {

void ignoreBrokenPipes() {
  struct sigaction now = {};
  if (::sigaction(SIGPIPE, nullptr, &now) != 0 || now.sa_handler != SIG_DFL) return;
  now.sa_handler = SIG_IGN;
  ::sigaction(SIGPIPE, &now, nullptr);
}

enum class Greeting { nobody, silent, answered };

/// What a local display's server has for a newcomer: a connect can't be given a time limit, so one that hangs must not be connected to.
Greeting greet(int displayNumber, double timeoutSec, FileHandle& socket) {
  socket = FileHandle(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  const auto path = fmt::format("/tmp/.X11-unix/X{}", displayNumber);
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  if (!socket || ::connect(socket.fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
    return errno == EAGAIN ? Greeting::silent : Greeting::nobody;  // EAGAIN: too many wait for it already
  // The greeting of a client with the lower byte first, protocol 11.0, without credentials: a refusal is an answer too.
  constexpr char greeting[12] = {'l', 0, 11};
  if (::send(socket.fd(), greeting, sizeof greeting, MSG_NOSIGNAL) != sizeof greeting) return Greeting::nobody;
  pollfd waiting = {.fd = socket.fd(), .events = POLLIN, .revents = 0};
  if (::poll(&waiting, 1, static_cast<int>(timeoutSec * 1000)) != 1) return Greeting::silent;
  char first = 0;
  return ::recv(socket.fd(), &first, 1, 0) == 1 ? Greeting::answered : Greeting::nobody;
}

bool isLocal(const std::string& display, int& number) {
  char* host = nullptr;
  int screen = 0;
  if (xcb_parse_display(display.c_str(), &host, &number, &screen) == 0) return false;
  const bool local = *host == '\0' || std::strcmp(host, "unix") == 0;
  std::free(host);
  return local;
}

}  // namespace

XConnection::XConnection(const std::optional<std::string>& display, double timeoutSec) {
  if (!display || Text::isBlank(*display)) throw XUnavailable(XUnavailable::Kind::noDisplay, "no display is named (DISPLAY is not set)");
  ignoreBrokenPipes();
  int screenNumber = 0, number = 0;
  const bool isHere = isLocal(*display, number);
  FileHandle greeter;  // held until we are in: a server may start afresh, and drop whoever is coming in, when its last client leaves
  const auto greeting = isHere ? greet(number, timeoutSec, greeter) : Greeting::answered;
  if (greeting == Greeting::silent) throw XUnavailable(XUnavailable::Kind::silent, fmt::format("display {} doesn't answer", *display));
  connection_.reset(xcb_connect(display->c_str(), &screenNumber));
  if (xcb_connection_has_error(connection_.get()) != 0) {
    // libxcb reports "nobody there" and "you may not" alike.
    if (isHere && greeting == Greeting::answered)
      throw XUnavailable(XUnavailable::Kind::refused, fmt::format("display {} refuses this account", *display));
    throw XUnavailable(XUnavailable::Kind::noDisplay, fmt::format("display {} is not there", *display));
  }
  auto screens = xcb_setup_roots_iterator(xcb_get_setup(connection_.get()));
  for (; screenNumber > 0 && screens.rem > 1; --screenNumber) xcb_screen_next(&screens);
  if (screens.rem == 0) throw XUnavailable(XUnavailable::Kind::noDisplay, fmt::format("display {} has no screen", *display));
  screen_ = screens.data;
}

void XConnection::settle(double timeoutSec, const std::stop_token& stop, const OnEvent& onEvent) {
  using Steady = std::chrono::steady_clock;
  const auto deadline = Steady::now() + std::chrono::duration_cast<Steady::duration>(std::chrono::duration<double>(timeoutSec));
  // The server answers in order: when this one's answer is in, all the earlier ones are.
  const auto marker = xcb_get_input_focus(raw());
  xcb_flush(raw());
  for (;;) {
    while (const XReply<xcb_generic_event_t> event{xcb_poll_for_event(raw())})
      if (onEvent) onEvent(*event);
    void* reply = nullptr;
    xcb_generic_error_t* error = nullptr;
    if (xcb_poll_for_reply(raw(), marker.sequence, &reply, &error) != 0) {
      std::free(reply);
      std::free(error);
      if (xcb_connection_has_error(raw()) != 0) throw XUnavailable(XUnavailable::Kind::noDisplay, "the display went away");
      return;
    }
    if (xcb_connection_has_error(raw()) != 0) throw XUnavailable(XUnavailable::Kind::noDisplay, "the display went away");
    throwIfStopped(stop);
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Steady::now()).count();
    if (left <= 0) throw XUnavailable(XUnavailable::Kind::silent, fmt::format("the display didn't answer within {} s", timeoutSec));
    pollfd waiting = {.fd = xcb_get_file_descriptor(raw()), .events = POLLIN, .revents = 0};
    ::poll(&waiting, 1, static_cast<int>(std::min<std::int64_t>(left, 100)));
  }
}

void XConnection::intern(const char* const* names, xcb_atom_t* atoms, std::size_t count, double timeoutSec) {
  std::vector<xcb_intern_atom_cookie_t> cookies;
  for (std::size_t i = 0; i < count; ++i)
    cookies.push_back(xcb_intern_atom(raw(), 0, static_cast<std::uint16_t>(std::strlen(names[i])), names[i]));
  settle(timeoutSec, {});
  for (std::size_t i = 0; i < count; ++i) {
    const XReply<xcb_intern_atom_reply_t> reply{xcb_intern_atom_reply(raw(), cookies[i], nullptr)};
    atoms[i] = reply ? reply->atom : xcb_atom_t{XCB_ATOM_NONE};
  }
}

bool XConnection::hasExtension(const char* name, double timeoutSec) {
  const auto cookie = xcb_query_extension(raw(), static_cast<std::uint16_t>(std::strlen(name)), name);
  settle(timeoutSec, {});
  const XReply<xcb_query_extension_reply_t> reply{xcb_query_extension_reply(raw(), cookie, nullptr)};
  return reply && reply->present != 0;
}

}  // namespace halvo
