#include "tools/PracticeModel/PracticeServer.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstring>
#include <system_error>

#include <fmt/format.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Net/UnixSocketHTTPProtocol.h"

namespace halvo {
namespace {

constexpr std::size_t headLimit = 65536;
constexpr std::size_t bodyLimit = std::size_t{64} << 20;

[[noreturn]] void fail(int code, const std::string& what) { throw std::system_error(code, std::generic_category(), what); }

sockaddr_un addressOf(const std::filesystem::path& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.native().size() > UnixSocketHTTPProtocol::maxSocketPathBytes) fail(ENAMETOOLONG, path.native());
  std::memcpy(address.sun_path, path.c_str(), path.native().size());
  return address;
}

/// Makes way for a new socket: a left-over one goes, anything else stays.
void removeStale(const std::filesystem::path& path) {
  struct stat info {};
  if (::lstat(path.c_str(), &info) != 0) return;
  if (!S_ISSOCK(info.st_mode)) fail(EEXIST, path.native());
  const auto address = addressOf(path);
  const FileHandle probe(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (::connect(probe.fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) fail(EADDRINUSE, path.native());
  if (::unlink(path.c_str()) != 0) fail(errno, path.native());
}

bool sendAll(const FileHandle& client, std::string_view bytes) {
  while (!bytes.empty()) {
    const auto count = ::send(client.fd(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

const char* reasonOf(int status) {
  switch (status) {
    case 200:
      return "OK";
    case 400:
      return "Bad Request";
    case 404:
      return "Not Found";
    case 413:
      return "Payload Too Large";
    case 503:
      return "Service Unavailable";
    default:
      return "Internal Server Error";
  }
}

std::string plainHead(const PracticeDialect::Answer& answer) {
  return fmt::format(
      "HTTP/1.1 {} {}\r\nServer: practice-model\r\nContent-Type: application/json; charset=utf-8\r\nContent-Length: {}\r\n"
      "Connection: close\r\n\r\n",
      answer.status, reasonOf(answer.status), answer.body.size());
}

constexpr std::string_view streamHead =
    "HTTP/1.1 200 OK\r\nServer: practice-model\r\nContent-Type: text/event-stream\r\nTransfer-Encoding: chunked\r\nConnection: "
    "close\r\n\r\n";

std::string chunk(std::string_view event) { return fmt::format("{:x}\r\n{}\r\n", event.size(), event); }

/// Absent for a head without a readable length; 0 without the header.
std::optional<std::size_t> contentLength(std::string_view head) {
  for (const auto line : Text::split(head, '\n')) {
    const auto colon = line.find(':');
    if (colon == std::string_view::npos || !Text::equalsIgnoringCase(line.substr(0, colon), "Content-Length")) continue;
    const auto digits = Text::trim(line.substr(colon + 1));
    std::size_t length = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), length);
    if (error != std::errc() || end != digits.data() + digits.size()) return std::nullopt;
    return length;
  }
  return 0;
}

}  // namespace

PracticeServer::PracticeServer(PracticeDialect& dialect, int port)
    : dialect_(dialect), listener_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)), end_(::eventfd(0, EFD_CLOEXEC)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  const int on = 1;
  ::setsockopt(listener_.fd(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  socklen_t size = sizeof address;
  if (::bind(listener_.fd(), reinterpret_cast<const sockaddr*>(&address), size) != 0 || ::listen(listener_.fd(), 64) != 0)
    fail(errno, fmt::format("127.0.0.1:{}", port));
  ::getsockname(listener_.fd(), reinterpret_cast<sockaddr*>(&address), &size);
  url_ = fmt::format("http://127.0.0.1:{}", ntohs(address.sin_port));
}

PracticeServer::PracticeServer(PracticeDialect& dialect, const std::filesystem::path& socketPath)
    : dialect_(dialect), listener_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)), end_(::eventfd(0, EFD_CLOEXEC)) {
  const auto address = addressOf(socketPath);
  removeStale(socketPath);
  if (::bind(listener_.fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) fail(errno, socketPath.native());
  socketPath_ = socketPath;
  if (::listen(listener_.fd(), 64) != 0) fail(errno, socketPath.native());
  url_ = UnixSocketHTTPProtocol::baseURL(socketPath);
}

PracticeServer::~PracticeServer() {
  ::eventfd_write(end_.fd(), 1);
  visitors_.clear();
  if (socketPath_) ::unlink(socketPath_->c_str());
}

void PracticeServer::run(const std::stop_token& stop) {
  const std::stop_callback wake(stop, [this] { ::eventfd_write(end_.fd(), 1); });
  while (waitReadable(listener_)) {
    std::erase_if(visitors_, [](const Visitor& visitor) { return visitor.done.load(); });
    FileHandle client(::accept4(listener_.fd(), nullptr, nullptr, SOCK_CLOEXEC));
    if (!client) continue;
    const int on = 1;
    ::setsockopt(client.fd(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    auto& visitor = visitors_.emplace_back();
    visitor.thread = std::jthread([this, &visitor, held = std::move(client)] {
      serve(held);
      visitor.done = true;
    });
  }
}

void PracticeServer::serve(const FileHandle& client) {
  std::string received;
  std::size_t headEnd = std::string::npos, length = 0;
  for (;;) {
    if (headEnd == std::string::npos && (headEnd = received.find("\r\n\r\n")) != std::string::npos) {
      const auto announced = contentLength(std::string_view(received).substr(0, headEnd));
      if (!announced || *announced > bodyLimit) {
        send(client, {.status = 413, .body = R"({"error":{"code":413,"message":"bad length","type":"invalid_request_error"}})"});
        return;
      }
      length = *announced;
    }
    if (headEnd != std::string::npos && received.size() - headEnd - 4 >= length) break;
    if (headEnd == std::string::npos && received.size() > headLimit) return;
    if (!waitReadable(client)) return;
    char buffer[65536];
    const auto count = ::recv(client.fd(), buffer, sizeof buffer, 0);
    if (count <= 0) return;
    received.append(buffer, static_cast<std::size_t>(count));
  }
  const auto line = Text::split(std::string_view(received).substr(0, received.find("\r\n")), ' ');
  if (line.size() < 3) return;
  PracticeDialect::Answer answer;
  try {
    answer = dialect_.answer({.method = std::string(line[0]),
                              .path = std::string(line[1].substr(0, line[1].find('?'))),
                              .body = received.substr(headEnd + 4, length),
                              .nowMs = Clock::system().nowMs()});
  } catch (const std::exception& error) {
    // One odd request must not end the server for everyone else.
    answer = {.status = 500,
              .body = JSONValue(JSONObject{{"error", JSONObject{{"code", 500}, {"message", Text::scrubbed(error.what())}}}}).dump()};
  }
  send(client, answer);
}

void PracticeServer::send(const FileHandle& client, const PracticeDialect::Answer& answer) {
  if (!pause(client, answer.pauseSec)) return;
  if (answer.fault == PracticeFault::hang) {
    pause(client, 1e9);
    return;
  }
  if (answer.fault == PracticeFault::garbage) {
    sendAll(client, "practice garbage, no HTTP at all\r\n\r\n");
    return;
  }
  const bool dies = answer.fault == PracticeFault::dieMidStream;
  if (answer.events.empty()) {
    sendAll(client, plainHead(answer) + answer.body.substr(0, dies ? answer.body.size() / 2 : std::string::npos));
    return;
  }
  if (!sendAll(client, streamHead)) return;
  const auto count = dies ? answer.events.size() / 2 : answer.events.size();
  for (std::size_t i = 0; i < count; ++i)
    if (!sendAll(client, chunk(answer.events[i])) || !pause(client, answer.eventPauseSec)) return;
  if (!dies) sendAll(client, "0\r\n\r\n");
}

/// False when the client or the server is going.
bool PracticeServer::pause(const FileHandle& client, double seconds) {
  if (seconds <= 0) return true;
  pollfd fds[] = {{client.fd(), POLLRDHUP, 0}, {end_.fd(), POLLIN, 0}};
  const int ready = ::poll(fds, 2, static_cast<int>(std::min(seconds * 1000, 2e9)));
  return ready == 0;
}

/// False when the server is to end.
bool PracticeServer::waitReadable(const FileHandle& socket) {
  pollfd fds[] = {{socket.fd(), POLLIN, 0}, {end_.fd(), POLLIN, 0}};
  while (::poll(fds, 2, -1) < 0 && errno == EINTR) {
  }
  return fds[1].revents == 0;
}

}  // namespace halvo
