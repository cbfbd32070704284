#include "agents/Capturer/FramePlacement.h"

namespace halvo::FramePlacement {

Decision decide(const Session& session, std::int64_t nowMs) {
  const auto sinceMs = nowMs - session.startMs;
  if (sinceMs < 0) return NewSession{};
  const auto index = (sinceMs + periodMs / 2) / periodMs;
  const auto step = index - session.lastIndex;
  if (step > mostRepeats || step < -1) return NewSession{};
  if (step <= 0) return TooEarly{};
  return At{index};
}

}  // namespace halvo::FramePlacement
