#include "Platform/Linux/SessionWatch.h"

#include <algorithm>
#include <array>
#include <tuple>

#include <sdbus-c++/sdbus-c++.h>

namespace halvo {
namespace {

struct SaverService {
  const char* name;
  const char* path;
};

/// Each desktop's own, beside the one that was meant for all. KDE answers at the second path of the first name.
constexpr std::array<SaverService, 6> saverServices{{
    {"org.freedesktop.ScreenSaver", "/org/freedesktop/ScreenSaver"},
    {"org.freedesktop.ScreenSaver", "/ScreenSaver"},
    {"org.gnome.ScreenSaver", "/org/gnome/ScreenSaver"},
    {"org.xfce.ScreenSaver", "/org/xfce/ScreenSaver"},
    {"org.cinnamon.ScreenSaver", "/org/cinnamon/ScreenSaver"},
    {"org.mate.ScreenSaver", "/org/mate/ScreenSaver"},
}};

constexpr const char* loginService = "org.freedesktop.login1";
constexpr const char* managerInterface = "org.freedesktop.login1.Manager";
constexpr const char* sessionInterface = "org.freedesktop.login1.Session";

}  // namespace

/// One object of one saver service.
struct ScreenSaverWatch::Saver {
  std::string service;
  std::optional<bool> isActive;
  std::unique_ptr<sdbus::IProxy> proxy;  // last: its callbacks use what stands above

  Saver(MessageBus& bus, const SaverService& place) : service(place.name) {
    proxy = sdbus::createProxy(bus.connection(), place.name, place.path);
    proxy->uponSignal("ActiveChanged").onInterface(place.name).call([this](bool active) { isActive = active; });
    proxy->finishRegistration();
    proxy->callMethodAsync("GetActive")
        .onInterface(place.name)
        .withTimeout(MessageBus::answerTimeoutUs)
        .uponReplyInvoke([this, open = bus.question()](const sdbus::Error* error, bool active) {
          if (!error) isActive = active;
        });
  }
};

ScreenSaverWatch::ScreenSaverWatch(MessageBus& sessionBus) : bus_(sessionBus) { bus_.add(*this); }
ScreenSaverWatch::~ScreenSaverWatch() = default;

std::optional<bool> ScreenSaverWatch::isActive() const {
  std::optional<bool> told;
  for (const auto& saver : savers_)
    if (saver->isActive) told = told.value_or(false) || *saver->isActive;
  return told;
}

void ScreenSaverWatch::watch(const std::string& name) {
  for (const auto& place : saverServices)
    if (name == place.name) savers_.push_back(std::make_unique<Saver>(bus_, place));
}

void ScreenSaverWatch::connected() {
  savers_.clear();
  std::string last;
  for (const auto& place : saverServices) {
    if (place.name != last && bus_.runs(place.name)) watch(place.name);
    last = place.name;
  }
}

void ScreenSaverWatch::lost() { savers_.clear(); }

void ScreenSaverWatch::serviceChanged(const std::string& name, bool isRunning) {
  std::erase_if(savers_, [&](const auto& saver) { return saver->service == name; });
  if (isRunning) watch(name);
}

LoginWatch::LoginWatch(MessageBus& systemBus, Options options) : bus_(systemBus), options_(std::move(options)) { bus_.add(*this); }
LoginWatch::~LoginWatch() = default;

std::optional<bool> LoginWatch::isLocked() const { return session_ ? session_->boolean("LockedHint") : std::nullopt; }
std::optional<bool> LoginWatch::isLidClosed() const { return manager_ ? manager_->boolean("LidClosed") : std::nullopt; }

void LoginWatch::refreshLid() {
  if (manager_) manager_->ask();
}

void LoginWatch::findSession() {
  // Each: its id, the account's number and name, the seat, the object's path.
  using Sessions = std::vector<sdbus::Struct<std::string, std::uint32_t, std::string, std::string, sdbus::ObjectPath>>;
  manager_->proxy()
      .callMethodAsync("ListSessions")
      .onInterface(managerInterface)
      .withTimeout(MessageBus::answerTimeoutUs)
      .uponReplyInvoke([this, open = bus_.question()](const sdbus::Error* error, const Sessions& sessions) {
        if (error) return;
        const auto fitness = [&](const auto& session) {
          if (std::get<1>(session) != options_.uid) return 0;
          if (options_.sessionID && std::get<0>(session) == *options_.sessionID) return 3;
          return std::get<3>(session).empty() ? 1 : 2;  // one without a seat is a shell from afar
        };
        std::string best;
        int bestFitness = 0;
        for (const auto& session : sessions)
          if (fitness(session) > bestFitness) bestFitness = fitness(session), best = std::get<4>(session);
        // A proxy can't be replaced from within an answer, so this waits for the pump's end.
        bus_.later([this, best] {
          if (!manager_ || best == sessionPath_) return;
          session_.reset();
          sessionPath_ = best;
          lockIsAskedFor_ = false;
          if (best.empty()) return;
          session_ = std::make_unique<WatchedObject>(
              bus_, WatchedObject::Place{.service = loginService, .path = best, .interface = sessionInterface},
              WatchedObject::Signals{{"Lock", [this] { lockIsAskedFor_ = true; }}, {"Unlock", [this] { lockIsAskedFor_ = false; }}});
        });
      });
}

void LoginWatch::connected() {
  lost();
  if (bus_.runs(loginService)) serviceChanged(loginService, true);
}

void LoginWatch::lost() {
  session_.reset();
  manager_.reset();
  sessionPath_.clear();
  lockIsAskedFor_ = false;
}

void LoginWatch::serviceChanged(const std::string& name, bool isRunning) {
  if (name != loginService) return;
  lost();
  if (!isRunning) return;
  manager_ = std::make_unique<WatchedObject>(
      bus_, WatchedObject::Place{.service = loginService, .path = "/org/freedesktop/login1", .interface = managerInterface},
      WatchedObject::Signals{{"SessionNew", [this] { findSession(); }}, {"SessionRemoved", [this] { findSession(); }}});
  findSession();
}

}  // namespace halvo
