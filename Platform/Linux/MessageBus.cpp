#include "Platform/Linux/MessageBus.h"

#include <algorithm>
#include <chrono>

#include <fmt/format.h>
#include <poll.h>
#include <sdbus-c++/sdbus-c++.h>

namespace halvo {
namespace {

using Steady = std::chrono::steady_clock;

constexpr const char* daemonName = "org.freedesktop.DBus";
constexpr const char* daemonPath = "/org/freedesktop/DBus";
constexpr const char* propertiesInterface = "org.freedesktop.DBus.Properties";

std::int64_t steadyMs() { return std::chrono::duration_cast<std::chrono::milliseconds>(Steady::now().time_since_epoch()).count(); }

}  // namespace

MessageBus::MessageBus(Options options) : options_(std::move(options)) {}
MessageBus::~MessageBus() = default;

void MessageBus::add(Reader& reader) {
  readers_.push_back(&reader);
  if (connection_ && wasListed_) reader.connected();
}

std::shared_ptr<void> MessageBus::question() {
  ++*openQuestions_;
  return {nullptr, [open = openQuestions_](void*) { --*open; }};
}

void MessageBus::connect() {
  retryAtMs_ = steadyMs() + static_cast<std::int64_t>(options_.retrySec * 1000);
  openQuestions_ = std::make_shared<int>(0);
  wasListed_ = false;
  connection_ = options_.address       ? sdbus::createSessionBusConnectionWithAddress(*options_.address)
                : options_.isSystemBus ? sdbus::createSystemBusConnection()
                                       : sdbus::createSessionBusConnection();
  connection_->setMethodCallTimeout(answerTimeoutUs);
  daemon_ = sdbus::createProxy(*connection_, daemonName, daemonPath);
  daemon_->uponSignal("NameOwnerChanged")
      .onInterface(daemonName)
      .call([this](const std::string& name, const std::string& before, const std::string& after) {
        if (name.empty() || name.front() == ':') return;  // the numbers that the bus gives out are no services
        const bool isRunning = !after.empty();
        // A service that another program took over is a new one: what was known of it goes first.
        if (isRunning && !before.empty()) changes_.emplace_back(name, false);
        changes_.emplace_back(name, isRunning);
      });
  daemon_->finishRegistration();
  daemon_->callMethodAsync("ListNames")
      .onInterface(daemonName)
      .withTimeout(answerTimeoutUs)
      .uponReplyInvoke([this, open = question()](const sdbus::Error* error, const std::vector<std::string>& names) {
        if (error) return;
        for (const auto& name : names)
          if (!name.empty() && name.front() != ':') services_.insert(name);
        wasListed_ = isNews_ = true;
        changes_.clear();  // the list has them in it
      });
}

void MessageBus::drop(const std::string& reason) {
  const bool hadReaders = connection_ && wasListed_;
  if (hadReaders)
    for (auto* reader : readers_) reader->lost();
  daemon_.reset();
  connection_.reset();
  services_.clear();
  changes_.clear();
  later_.clear();
  wasListed_ = isNews_ = false;
  if (!saidLost_ && options_.log)
    options_.log(fmt::format("no {} bus ({}) — what it would tell stays unknown", options_.isSystemBus ? "system" : "session", reason));
  saidLost_ = true;
}

void MessageBus::pump() {
  try {
    if (!connection_) {
      if (steadyMs() < retryAtMs_) return;
      connect();
    }
    for (int handled = 0; handled < 10'000 && connection_->processPendingRequest(); ++handled) {
    }
    if (std::exchange(isNews_, false))
      for (auto* reader : readers_) reader->connected();
    for (const auto changes = std::exchange(changes_, {}); const auto& [name, isRunning] : changes) {
      if (isRunning)
        services_.insert(name);
      else
        services_.erase(name);
      for (auto* reader : readers_) reader->serviceChanged(name, isRunning);
    }
    for (const auto& action : std::exchange(later_, {})) action();
    if (wasListed_ && saidLost_) {
      if (options_.log) options_.log(fmt::format("the {} bus is there again", options_.isSystemBus ? "system" : "session"));
      saidLost_ = false;
    }
  } catch (const sdbus::Error& error) {
    drop(error.getMessage());
  }
}

void MessageBus::settle(double seconds) {
  const auto deadline = Steady::now() + std::chrono::duration_cast<Steady::duration>(std::chrono::duration<double>(seconds));
  for (pump(); connection_ && *openQuestions_ > 0; pump()) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Steady::now()).count();
    if (left <= 0) return;
    const auto waitFor = connection_->getEventLoopPollData();
    pollfd waiting = {.fd = waitFor.fd, .events = waitFor.events, .revents = 0};
    const int own = waitFor.getPollTimeout();
    ::poll(&waiting, 1, static_cast<int>(own < 0 ? left : std::min<std::int64_t>(left, own)));
  }
}

WatchedObject::WatchedObject(MessageBus& bus, Place place, const Signals& signals) : bus_(bus), place_(std::move(place)) {
  proxy_ = sdbus::createProxy(bus_.connection(), place_.service, place_.path);
  proxy_->uponSignal("PropertiesChanged")
      .onInterface(propertiesInterface)
      .call([this](const std::string& interface, const std::map<std::string, sdbus::Variant>& now, const std::vector<std::string>& stale) {
        if (interface != place_.interface) return;
        for (const auto& [property, value] : now) properties_.insert_or_assign(property, value);
        if (!stale.empty()) ask();
      });
  for (const auto& [name, action] : signals) proxy_->uponSignal(name).onInterface(place_.interface).call([action = action] { action(); });
  proxy_->finishRegistration();
  ask();
}

WatchedObject::~WatchedObject() = default;

void WatchedObject::ask() {
  proxy_->callMethodAsync("GetAll")
      .onInterface(propertiesInterface)
      .withTimeout(MessageBus::answerTimeoutUs)
      .withArguments(place_.interface)
      .uponReplyInvoke([this, open = bus_.question()](const sdbus::Error* error, const std::map<std::string, sdbus::Variant>& all) {
        if (error) return;
        properties_ = all;
      });
}

const sdbus::Variant* WatchedObject::value(const std::string& property) const {
  const auto found = properties_.find(property);
  return found == properties_.end() || found->second.isEmpty() ? nullptr : &found->second;
}

std::optional<bool> WatchedObject::boolean(const std::string& property) const {
  const auto* found = value(property);
  if (!found || !found->containsValueOfType<bool>()) return std::nullopt;
  return found->get<bool>();
}

std::optional<double> WatchedObject::number(const std::string& property) const {
  const auto* found = value(property);
  if (!found) return std::nullopt;
  if (found->containsValueOfType<double>()) return found->get<double>();
  if (found->containsValueOfType<std::uint32_t>()) return found->get<std::uint32_t>();
  if (found->containsValueOfType<std::int32_t>()) return found->get<std::int32_t>();
  if (found->containsValueOfType<std::uint64_t>()) return static_cast<double>(found->get<std::uint64_t>());
  if (found->containsValueOfType<std::int64_t>()) return static_cast<double>(found->get<std::int64_t>());
  return std::nullopt;
}

}  // namespace halvo
