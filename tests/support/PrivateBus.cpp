#include "tests/support/PrivateBus.h"

#include <csignal>
#include <stdexcept>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <sdbus-c++/sdbus-c++.h>

#include "CaptureShared/Foundation/FileHandle.h"
#include "tests/support/Eventually.h"

namespace halvo::test {

PrivateBus::PrivateBus() {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  const FileHandle read(ends[0]);
  FileHandle write(ends[1]);
  daemon_ = ChildProcess("dbus-daemon", {"--session", "--nofork", "--nopidfile", "--address=unix:tmpdir=/tmp", "--print-address=3"},
                         processEnvironment(), {{.ours = write.fd(), .childs = 3}});
  write.reset();
  eventually([&] {
    pollfd waiting = {.fd = read.fd(), .events = POLLIN, .revents = 0};
    char byte = 0;
    while (::poll(&waiting, 1, 0) == 1 && ::read(read.fd(), &byte, 1) == 1) {
      if (byte == '\n') return true;
      address_ += byte;
    }
    return false;
  });
  if (address_.empty()) throw std::runtime_error("dbus-daemon didn't start");
  connection_ = sdbus::createSessionBusConnectionWithAddress(address_);
}

PrivateBus::~PrivateBus() = default;

bool PrivateBus::runs(const std::string& service) {
  bool owned = false;
  proxy("org.freedesktop.DBus", "/org/freedesktop/DBus")
      ->callMethod("NameHasOwner")
      .onInterface("org.freedesktop.DBus")
      .withArguments(service)
      .storeResultsTo(owned);
  return owned;
}

void PrivateBus::startMock(std::vector<std::string> words, const std::string& service) {
  auto environment = processEnvironment();
  environment["DBUS_SESSION_BUS_ADDRESS"] = address_;
  words.insert(words.begin(), {"-m", "dbusmock", "--session"});
  services_.emplace_back("/usr/bin/python3", words, environment);
  names_.push_back(service);
  if (!eventually([&] { return runs(service); }, 20)) throw std::runtime_error(service + " didn't start");
}

void PrivateBus::startTemplate(const std::string& name, const std::string& service) { startMock({"--template", name}, service); }

void PrivateBus::startService(const std::string& service, const std::string& path, const std::string& interface) {
  startMock({service, path, interface}, service);
}

void PrivateBus::stopLastService() {
  services_.pop_back();
  if (!eventually([&] { return !runs(names_.back()); })) throw std::runtime_error(names_.back() + " didn't end");
  names_.pop_back();
}

void PrivateBus::stop() { daemon_.end(); }

std::unique_ptr<sdbus::IProxy> PrivateBus::proxy(const std::string& service, const std::string& path) {
  return sdbus::createProxy(*connection_, service, path);
}

}  // namespace halvo::test
