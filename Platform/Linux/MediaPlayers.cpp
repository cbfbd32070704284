#include "Platform/Linux/MediaPlayers.h"

#include <string_view>
#include <vector>

#include <sdbus-c++/sdbus-c++.h>

#include "CaptureShared/Foundation/Text.h"

namespace halvo {
namespace {

constexpr std::string_view servicePrefix = "org.mpris.MediaPlayer2.";
constexpr const char* playerPath = "/org/mpris/MediaPlayer2";
constexpr const char* playerInterface = "org.mpris.MediaPlayer2.Player";

using Metadata = std::map<std::string, sdbus::Variant>;

template <class T>
std::optional<T> valueOf(const Metadata& metadata, const char* key) {
  const auto found = metadata.find(key);
  if (found == metadata.end() || !found->second.containsValueOfType<T>()) return std::nullopt;
  return found->second.get<T>();
}

std::optional<std::string> said(std::string text) {
  if (Text::isBlank(text)) return std::nullopt;
  return text;
}

std::string statusOf(const WatchedObject& player) {
  const auto* status = player.value("PlaybackStatus");
  return status && status->containsValueOfType<std::string>() ? status->get<std::string>() : std::string();
}

NowPlaying::Result resultOf(const WatchedObject& player) {
  NowPlaying::Result result{.playing = statusOf(player) == "Playing"};
  const auto* metadata = player.value("Metadata");
  if (!metadata || !metadata->containsValueOfType<Metadata>()) return result;
  const auto fields = metadata->get<Metadata>();
  if (auto title = valueOf<std::string>(fields, "xesam:title")) result.title = said(std::move(*title));
  if (auto artists = valueOf<std::vector<std::string>>(fields, "xesam:artist"))
    result.artist = said(Text::join(*artists, ", "));
  else if (auto artist = valueOf<std::string>(fields, "xesam:artist"))  // some players forget that it is a list
    result.artist = said(std::move(*artist));
  return result;
}

}  // namespace

MediaPlayers::MediaPlayers(MessageBus& sessionBus) : bus_(sessionBus) { bus_.add(*this); }
MediaPlayers::~MediaPlayers() = default;

MediaPlayers::Result MediaPlayers::fetch() {
  bus_.pump();
  const WatchedObject* paused = nullptr;
  for (const auto& [name, player] : players_) {
    const auto status = statusOf(*player);
    if (status == "Playing") return resultOf(*player);
    if (status == "Paused" && !paused) paused = player.get();
  }
  return paused ? resultOf(*paused) : Result{};
}

void MediaPlayers::sendPause() {
  bus_.pump();
  for (const auto& [name, player] : players_) {
    if (statusOf(*player) != "Playing") continue;
    try {
      player->proxy()
          .callMethodAsync("Pause")
          .onInterface(playerInterface)
          .withTimeout(MessageBus::answerTimeoutUs)
          .uponReplyInvoke([open = bus_.question()](const sdbus::Error*) {});
    } catch (const sdbus::Error&) {
      // The bus is failing: the next pump finds out and says so.
    }
  }
  bus_.pump();
}

void MediaPlayers::connected() {
  players_.clear();
  for (const auto& name : bus_.services()) serviceChanged(name, true);
}

void MediaPlayers::lost() { players_.clear(); }

void MediaPlayers::serviceChanged(const std::string& name, bool isRunning) {
  if (!name.starts_with(servicePrefix)) return;
  players_.erase(name);
  if (isRunning)
    players_[name] =
        std::make_unique<WatchedObject>(bus_, WatchedObject::Place{.service = name, .path = playerPath, .interface = playerInterface});
}

}  // namespace halvo
