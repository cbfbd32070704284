#pragma once

#include <cstdint>
#include <optional>
#include <string>

/// `halvo review`: past moments, answered by the person who was there. Each answers the exit status and prints its own words.
namespace halvo::ReviewCommands {

struct Draw {
  std::string mode = "verdict_blind";  ///< or "interesting_moments"
  std::int64_t limit = 20;
  std::optional<std::uint64_t> seed = {};  ///< absent: the time
  bool isNew = false;                      ///< gives up a review that was left
  bool fromLogs = false;                   ///< moments without footage too, and no clips
};
/// Goes on with the review that was left, or draws a new one.
int review(const Draw& draw);
/// How often verdicts agreed: with blind answers on random moments, or with everything that was ever said.
int score(bool everything);

}  // namespace halvo::ReviewCommands
