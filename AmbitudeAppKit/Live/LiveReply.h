#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <set>
#include <string>

#include "AmbitudeAppKit/Live/LiveLog.h"
#include "AmbitudeCore/Coach/CoachStreamReader.h"

namespace halvo {

/// The reply that is being written, until its row has come. It follows the stream file and nothing else, so the driver may come and go: what
/// one that was killed left behind gives way to the next turn, or goes after a while.
class LiveReply {
 public:
  static constexpr std::int64_t staleMs = 60'000;  ///< nobody writes on at a reply that stood still for so long

  LiveReply(std::filesystem::path stream, bool withThinking) : stream_(std::move(stream)), withThinking_(withThinking) {}

  /// What has been written so far.
  struct Shown {
    std::int64_t tsMs = 0;  ///< of the turn
    std::string text = {}, thinking = {};
    bool operator==(const Shown&) const = default;
  };
  /// A look at the stream: what is to be shown now; absent for nothing. What had ended at the first look is never shown.
  std::optional<Shown> current(std::int64_t nowMs);
  /// The same as lines that are safe on a terminal; empty for nothing.
  std::string look(std::int64_t nowMs, const Calendar& calendar);
  /// A row has come; those of a turn settle it.
  void settle(const LiveLog::Line& line);
  /// A row of the event log of this time has come.
  void settle(std::int64_t tsMs);

 private:
  std::filesystem::path stream_;
  bool withThinking_;
  CoachStreamReader reader_;
  std::set<std::string> settled_;
  bool hasLooked_ = false;
  std::string lastTurn_;
  std::uint64_t lastOffset_ = 0;
  std::int64_t changedMs_ = 0;
};

}  // namespace halvo
