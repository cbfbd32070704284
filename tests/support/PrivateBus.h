#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tests/support/ChildProcess.h"

namespace sdbus {
class IConnection;
class IProxy;
}  // namespace sdbus

namespace halvo::test {

/// A D-Bus daemon of the test's own, for stand-ins of a desktop's services.
class PrivateBus {
 public:
  PrivateBus();
  ~PrivateBus();

  const std::string& address() const { return address_; }

  /// Starts one of python3-dbusmock's ready services, such as "upower", and waits for it.
  void startTemplate(const std::string& name, const std::string& service);
  /// Starts a bare service that is then given methods and properties through its `org.freedesktop.DBus.Mock` interface.
  void startService(const std::string& service, const std::string& path, const std::string& interface);
  /// Ends the service started last.
  void stopLastService();
  /// Ends the daemon, as at the end of a session.
  void stop();

  std::unique_ptr<sdbus::IProxy> proxy(const std::string& service, const std::string& path);

 private:
  void startMock(std::vector<std::string> words, const std::string& service);
  bool runs(const std::string& service);

  std::string address_;
  ChildProcess daemon_;
  std::vector<ChildProcess> services_;
  std::vector<std::string> names_;
  std::unique_ptr<sdbus::IConnection> connection_;
};

}  // namespace halvo::test
