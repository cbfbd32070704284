#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "CaptureShared/Foundation/Log.h"

namespace sdbus {
class IConnection;
class IProxy;
class Variant;
class Error;
}  // namespace sdbus

namespace halvo {

/// One D-Bus bus, without a thread: its user pumps it, and nothing on it ever waits for another program. Answers and signals come in while
/// it is pumped. Only services that run already are talked to; none is ever started by our asking. Connects when first pumped and
/// again after it went away, and says both once.
class MessageBus {
 public:
  struct Options {
    bool isSystemBus = false;
    std::optional<std::string> address = {};  ///< absent: the one that the environment names
    double retrySec = 30;                     ///< least time between two tries to connect
    LogSink log = {};
  };

  /// What reads this bus. All calls come from `pump`.
  class Reader {
   public:
    virtual ~Reader() = default;
    /// The bus is there: `bus.runs(name)` holds for every service that already runs. Forget all from before.
    virtual void connected() = 0;
    /// The bus is gone, and every proxy with it is to be dropped now.
    virtual void lost() = 0;
    /// A service came, or went.
    virtual void serviceChanged(const std::string& name, bool isRunning) = 0;
  };

  explicit MessageBus(Options options);
  ~MessageBus();
  MessageBus(const MessageBus&) = delete;
  MessageBus& operator=(const MessageBus&) = delete;

  /// Adds a reader, which must outlive the bus's last `pump`.
  void add(Reader& reader);
  /// Takes in what has arrived; connects when that is due. Never waits for anybody but the bus itself and never throws.
  void pump();
  /// Pumps until every question asked so far is answered, or `seconds` pass.
  void settle(double seconds);

  bool isConnected() const { return connection_ != nullptr; }
  bool runs(const std::string& service) const { return services_.count(service) != 0; }
  const std::set<std::string>& services() const { return services_; }
  /// Only while connected.
  sdbus::IConnection& connection() { return *connection_; }

  /// Runs `action` at the end of the present pump, outside every callback. Dropped with the connection.
  void later(std::function<void()> action) { later_.push_back(std::move(action)); }
  /// Counts one question from its asking to its answer, for `settle`. Keep it in the callback.
  std::shared_ptr<void> question();

  /// How long another program may take over an answer before it counts as failed, in microseconds.
  static constexpr std::uint64_t answerTimeoutUs = 500'000;

 private:
  void connect();
  void drop(const std::string& reason);

  Options options_;
  std::vector<Reader*> readers_;
  std::set<std::string> services_;
  std::unique_ptr<sdbus::IConnection> connection_;
  std::unique_ptr<sdbus::IProxy> daemon_;
  std::shared_ptr<int> openQuestions_ = std::make_shared<int>(0);
  std::vector<std::pair<std::string, bool>> changes_;  ///< services that came or went during a dispatch
  std::vector<std::function<void()>> later_;
  bool wasListed_ = false;  ///< the first list of services is in
  bool isNews_ = false;     ///< and the readers haven't been told
  bool saidLost_ = false;
  std::int64_t retryAtMs_ = 0;  ///< on the steady clock
};

/// The properties of one interface of one object, kept up to date by the service's own signals. Lives from the service's coming to its
/// going: whoever owns it drops it in `Reader::lost` and `serviceChanged`.
class WatchedObject {
 public:
  struct Place {
    std::string service = {}, path = {}, interface = {};
  };
  /// Signals of the same interface, by name, and what to do at each, within the bus's pump (`MessageBus::later` is for what destroys this
  /// object).
  using Signals = std::vector<std::pair<std::string, std::function<void()>>>;

  /// Starts listening and asks for all properties. Throws `sdbus::Error` when the bus is failing.
  WatchedObject(MessageBus& bus, Place place, const Signals& signals = {});
  ~WatchedObject();

  /// Absent until the service has answered, and for a property that it lacks or that has another type.
  std::optional<bool> boolean(const std::string& property) const;
  std::optional<double> number(const std::string& property) const;  ///< of any of D-Bus's number types
  const sdbus::Variant* value(const std::string& property) const;   ///< null: absent
  sdbus::IProxy& proxy() { return *proxy_; }
  /// Asks for all properties anew: for those whose changes a service doesn't announce.
  void ask();

 private:
  MessageBus& bus_;
  Place place_;
  std::map<std::string, sdbus::Variant> properties_;
  std::unique_ptr<sdbus::IProxy> proxy_;  // last: its callbacks use what stands above
};

}  // namespace halvo
