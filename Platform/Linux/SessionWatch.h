#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Platform/Linux/MessageBus.h"

namespace halvo {

/// Whether the screen is locked or its saver is on, from the desktop's saver services on the session bus. Some lockers tell only one of
/// them and some only logind, so all are listened to; one that says "active" is believed, and one that can't tell counts for nothing.
class ScreenSaverWatch : public MessageBus::Reader {
 public:
  explicit ScreenSaverWatch(MessageBus& sessionBus);
  ~ScreenSaverWatch() override;

  /// Absent while no saver service tells.
  std::optional<bool> isActive() const;

  void connected() override;
  void lost() override;
  void serviceChanged(const std::string& name, bool isRunning) override;

 private:
  struct Saver;
  void watch(const std::string& name);

  MessageBus& bus_;
  std::vector<std::unique_ptr<Saver>> savers_;
};

/// This account's login session and the lid, from logind on the system bus.
class LoginWatch : public MessageBus::Reader {
 public:
  struct Options {
    std::optional<std::string> sessionID = {};  ///< what XDG_SESSION_ID says; absent: the account's session that has a seat
    std::uint32_t uid = 0;
  };
  LoginWatch(MessageBus& systemBus, Options options);
  ~LoginWatch() override;

  /// What the session's lock hint says; absent when logind or the session isn't there.
  std::optional<bool> isLocked() const;
  /// Whether somebody asked for a lock and nobody asked for its end since. Not a lock yet: a program has to carry it out.
  bool lockIsAskedFor() const { return lockIsAskedFor_; }
  void forgetLockRequest() { lockIsAskedFor_ = false; }
  /// As of the last `refreshLid`. On a machine without a lid logind says "open".
  std::optional<bool> isLidClosed() const;
  /// Asks for the lid: logind doesn't announce it.
  void refreshLid();

  void connected() override;
  void lost() override;
  void serviceChanged(const std::string& name, bool isRunning) override;

 private:
  void findSession();

  MessageBus& bus_;
  Options options_;
  bool lockIsAskedFor_ = false;
  std::string sessionPath_;
  std::unique_ptr<WatchedObject> manager_, session_;
};

}  // namespace halvo
