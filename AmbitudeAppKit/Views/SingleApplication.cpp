#include "AmbitudeAppKit/Views/SingleApplication.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <system_error>
#include <thread>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <QSocketNotifier>

#include "CaptureShared/Foundation/UserFolders.h"

namespace halvo {

namespace {

constexpr std::chrono::milliseconds patience(2'000), pause(20);

sockaddr_un addressIn(const std::filesystem::path& folder) {
  const auto path = (folder / "halvo-app.sock").string();
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) throw std::system_error(ENAMETOOLONG, std::generic_category(), path);
  std::memcpy(address.sun_path, path.data(), path.size());
  return address;
}

FileHandle newSocket() { return FileHandle(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)); }

/// Whether the process at the other end is of this account.
bool isOurs(int peer) {
  ucred who{};
  socklen_t size = sizeof who;
  return ::getsockopt(peer, SOL_SOCKET, SO_PEERCRED, &who, &size) == 0 && who.uid == ::geteuid();
}

}  // namespace

std::filesystem::path SingleApplication::folder(const Environment& environment) {
  const auto runtime = value(environment, "XDG_RUNTIME_DIR");
  std::error_code none;
  return runtime && runtime->starts_with('/') && std::filesystem::is_directory(*runtime, none) ? std::filesystem::path(*runtime)
                                                                                              : UserFolders::systemTemp(environment);
}

SingleApplication::SingleApplication(std::filesystem::path folder) : folder_(std::move(folder)) {
  const auto file = folder_ / "halvo-app.lock";
  FileHandle lock(::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (!lock) throw std::system_error(errno, std::generic_category(), file.string());
  if (::flock(lock.fd(), LOCK_EX | LOCK_NB) != 0) {
    if (errno == EWOULDBLOCK) return;
    throw std::system_error(errno, std::generic_category(), file.string());
  }
  lock_ = std::move(lock);
  const auto address = addressIn(folder_);
  // Whoever left it there no longer has the lock.
  ::unlink(address.sun_path);
  socket_ = newSocket();
  if (!socket_ || ::bind(socket_.fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 || ::listen(socket_.fd(), 8) != 0)
    throw std::system_error(errno, std::generic_category(), address.sun_path);
}

SingleApplication::~SingleApplication() {
  if (isFirst()) ::unlink(addressIn(folder_).sun_path);
}

void SingleApplication::listen(std::function<void()> asked) {
  notifier_ = std::make_unique<QSocketNotifier>(socket_.fd(), QSocketNotifier::Read);
  QObject::connect(notifier_.get(), &QSocketNotifier::activated, notifier_.get(), [this, asked = std::move(asked)] {
    const FileHandle peer(::accept4(socket_.fd(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    // That somebody of this account connects is the whole message.
    if (peer && isOurs(peer.fd())) asked();
  });
}

bool SingleApplication::askFirst() const {
  const auto address = addressIn(folder_);
  // The first one may just be starting.
  const auto until = std::chrono::steady_clock::now() + patience;
  while (std::chrono::steady_clock::now() < until) {
    const auto socket = newSocket();
    if (socket && ::connect(socket.fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return true;
    std::this_thread::sleep_for(pause);
  }
  return false;
}

}  // namespace halvo
