#pragma once

#include <cstdint>
#include <variant>

/// Where in its session a frame belongs. A session's frame `i` is of the time `startMs` + `i` × 500 ms, give or take 250: that is how a
/// moment is found in a file, so a session ends where this no longer holds. Pure.
namespace halvo::FramePlacement {

inline constexpr std::int64_t periodMs = 500;
/// A recorder that was held up repeats its picture for so many missed frames; more than that is a gap.
inline constexpr std::int64_t mostRepeats = 10;

struct Session {
  std::int64_t startMs = 0;
  std::int64_t lastIndex = 0;
};
struct At {
  std::int64_t index = 0;  ///< the frames behind `lastIndex` up to this one are all this picture
  bool operator==(const At&) const = default;
};
struct TooEarly {
  bool operator==(const TooEarly&) const = default;
};
/// The machine slept, the recorder hung, or the clock was set.
struct NewSession {
  bool operator==(const NewSession&) const = default;
};
using Decision = std::variant<At, TooEarly, NewSession>;

Decision decide(const Session& session, std::int64_t nowMs);

}  // namespace halvo::FramePlacement
