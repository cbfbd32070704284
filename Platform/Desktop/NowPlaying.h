#pragma once

#include <optional>
#include <string>

namespace halvo {

/// The media player, if one runs. Never throws; one caller at a time.
class NowPlaying {
 public:
  struct Result {
    std::optional<std::string> title = {}, artist = {};
    std::optional<bool> playing = {};  ///< absent: no player, or one that doesn't say
    bool operator==(const Result&) const = default;
  };

  virtual ~NowPlaying() = default;
  /// What plays; of several players one that is playing, else one that is paused.
  virtual Result fetch() = 0;
  /// Pauses every player that is playing. A player that refuses is left alone.
  virtual void sendPause() = 0;
};

}  // namespace halvo
