#pragma once

#include <map>
#include <memory>
#include <string>

#include "Platform/Desktop/NowPlaying.h"
#include "Platform/Linux/MessageBus.h"

namespace halvo {

/// The media players that speak MPRIS on the session bus. They announce what they play, so `fetch` asks nobody.
class MediaPlayers : public NowPlaying, public MessageBus::Reader {
 public:
  explicit MediaPlayers(MessageBus& sessionBus);
  ~MediaPlayers() override;

  /// As of the bus's last pump, which this calls.
  Result fetch() override;
  /// Sends `Pause` to the players that play and doesn't wait for their answer.
  void sendPause() override;

  void connected() override;
  void lost() override;
  void serviceChanged(const std::string& name, bool isRunning) override;

 private:
  MessageBus& bus_;
  std::map<std::string, std::unique_ptr<WatchedObject>> players_;  ///< by service name
};

}  // namespace halvo
